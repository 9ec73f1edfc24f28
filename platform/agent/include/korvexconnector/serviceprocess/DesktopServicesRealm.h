#pragma once

#include <string>

namespace korvexconnector::serviceprocess {

// The desktop services realm this process belongs to. Agents of mode desktopservices in
// different realms keep separate registries (see FolderLocations).
//
// name() is deliberately the first virtual member: callers reach it through the first
// slot of the table, so do not declare another virtual member before it.
class DesktopServicesRealm {
public:
    // The realm name. Any thread; throws nothing but std::bad_alloc.
    virtual std::string name() const;
    virtual ~DesktopServicesRealm() = default;

    // The process's realm, created on first use (thread-safe) and never destroyed, named
    // nameFromEnvironment() as it was at that moment.
    static DesktopServicesRealm& instance();

    // $DESKTOPSERVICES_REALM when it is a single folder name (not empty, ".", "..", no '/');
    // "default" otherwise, with a warning when the variable was set to something unusable.
    // Reads the environment on every call. Never throws except std::bad_alloc.
    static std::string nameFromEnvironment();

    static constexpr const char* kDefaultName = "default";
    static constexpr const char* kEnvironmentVariable = "DESKTOPSERVICES_REALM";

protected:
    explicit DesktopServicesRealm(std::string name);
    DesktopServicesRealm(const DesktopServicesRealm&) = delete;
    DesktopServicesRealm& operator=(const DesktopServicesRealm&) = delete;

private:
    const std::string name_;
};

}  // namespace korvexconnector::serviceprocess
