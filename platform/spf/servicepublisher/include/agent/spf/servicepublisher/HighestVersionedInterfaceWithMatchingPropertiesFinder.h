#pragma once

// Picks, from an index of service interfaces ordered by (name, version), the highest version
// of one name and major version whose service properties hold every requested property.
//
//   HighestVersionedInterfaceWithMatchingPropertiesFinder finder("Greeter", APIVersion(2), requested);
//   auto found = finder(interfaces.get<ByNameAndVersion>());
//   if (found != interfaces.get<ByNameAndVersion>().end()) { ... }
//
// Only the requested major version counts: asked for 2.5.0.0, the finder searches 2.0.0.0 up to,
// not including, 3.0.0.0, and the highest entry there with the properties wins. When it finds
// nothing it passes one of two texts to log() and returns the index's end():
//   "Unable to find a ServiceInterface for <name> with version compatible to requested version <V>"
//   "Unable to find a ServiceInterface for <name> with version compatible to requested version <V>
//    and all required service properties <properties>"   (one line)
// where <V> is major.0.0.0 in APIVersion::toString() form and <properties> the requested tree as
// compact JSON ({"key":"value"}).
//
// A requested property is a leaf of the tree; its key is its path, nested keys joined with '.'
// ({"a":{"b":"c"}} asks for property "a.b" = "c"). It is present when the service properties
// hold that key with exactly that value. An empty tree asks for nothing.
//
// The index: any container whose lower_bound takes a (name, version) key as a std::tuple (e.g. a
// Boost.MultiIndex ordered index on a composite key) or as a std::pair (e.g. a
// std::map<std::pair<std::string, APIVersion>, T>), with bidirectional iterators. The service
// properties of an element are found by the element's getServiceProperties(), or its .second's
// getServiceProperties(), or its .second itself when that is the property map; pass propertiesOf to
// say otherwise.
//
// Thread safety: the finder is immutable; any number of threads may use one at once, each with an
// index it may read. Searching never blocks except in log(). Throws nothing of its own; the default
// log never throws.

#include "agent/spf/core/APIVersion.h"

#include <boost/property_tree/ptree.hpp>

#include <functional>
#include <limits>
#include <map>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace agent::spf::servicepublisher {

namespace detail {

template <class Index, class = void>
struct takesTupleKey : std::false_type {};
template <class Index>
struct takesTupleKey<Index, std::void_t<decltype(std::declval<const Index&>().lower_bound(
                                std::declval<const std::tuple<std::string, core::APIVersion>&>()))>>
    : std::true_type {};

template <class Element, class = void>
struct hasGetServiceProperties : std::false_type {};
template <class Element>
struct hasGetServiceProperties<Element, std::void_t<decltype(std::declval<const Element&>().getServiceProperties())>>
    : std::true_type {};

template <class Element, class = void>
struct hasSecond : std::false_type {};
template <class Element>
struct hasSecond<Element, std::void_t<decltype(std::declval<const Element&>().second)>> : std::true_type {};

template <class Index>
auto lowerBound(const Index& index, const std::string& name, const core::APIVersion& version) {
    if constexpr (takesTupleKey<Index>::value) {
        return index.lower_bound(std::tuple<std::string, core::APIVersion>(name, version));
    } else {
        return index.lower_bound(std::make_pair(name, version));
    }
}

struct DefaultServicePropertiesOf {
    template <class Element>
    const std::map<std::string, std::string>& operator()(const Element& element) const {
        if constexpr (hasGetServiceProperties<Element>::value) {
            return element.getServiceProperties();
        } else if constexpr (hasSecond<Element>::value) {
            using Second = std::decay_t<decltype(element.second)>;
            if constexpr (hasGetServiceProperties<Second>::value) {
                return element.second.getServiceProperties();
            } else {
                return element.second;
            }
        } else {
            static_assert(hasSecond<Element>::value, "pass propertiesOf for this kind of index element");
            return element;
        }
    }
};

}  // namespace detail

class HighestVersionedInterfaceWithMatchingPropertiesFinder {
public:
    using ServiceProperties = std::map<std::string, std::string>;
    // Receives the explanation when nothing is found; called on the searching thread.
    using LogFunction = std::function<void(const std::string&)>;

    // Only requestedVersion.major is kept. With no log function the texts go to the
    // "agent::spf::servicepublisher" logger at warning severity (0x02).
    HighestVersionedInterfaceWithMatchingPropertiesFinder(std::string name, const core::APIVersion& requestedVersion,
                                                          boost::property_tree::ptree requestedProperties,
                                                          LogFunction log = {});

    // The entry found, or index.end(). Non-blocking apart from log().
    template <class OrderedIndex>
    auto operator()(const OrderedIndex& index) const {
        return (*this)(index, detail::DefaultServicePropertiesOf{});
    }

    // As above; propertiesOf(element) gives the element's service properties as a
    // const ServiceProperties&.
    template <class OrderedIndex, class PropertiesOf>
    auto operator()(const OrderedIndex& index, PropertiesOf propertiesOf) const {
        auto lower = detail::lowerBound(index, name_, version_);
        // With the largest major there is no next major; the range then ends at the first entry of
        // the next name, and name + '\0' is the least string after name.
        auto upper = version_.major == std::numeric_limits<std::uint32_t>::max()
                         ? detail::lowerBound(index, name_ + '\0', core::APIVersion(0))
                         : detail::lowerBound(index, name_, core::APIVersion(version_.major + 1));
        if (lower == upper) {
            log(noCompatibleVersionMessage());
            return decltype(lower)(index.end());
        }
        for (auto candidate = upper; candidate != lower;) {
            --candidate;
            if (hasRequiredServiceProperties(propertiesOf(*candidate))) {
                return candidate;
            }
        }
        log(noMatchingPropertiesMessage());
        return decltype(lower)(index.end());
    }

    // True if serviceProperties hold every requested property with its value.
    bool hasRequiredServiceProperties(const ServiceProperties& serviceProperties) const;

    // Hands message to the log function given at construction, or to the library's logger.
    // Never throws: a throwing log function is caught and its failure dropped.
    void log(const std::string& message) const noexcept;

    const std::string& getName() const noexcept { return name_; }
    // major.0.0.0 of the requested version.
    const core::APIVersion& getVersion() const noexcept { return version_; }
    const boost::property_tree::ptree& getRequestedProperties() const noexcept { return requestedProperties_; }

    // The two explanations, as log() receives them.
    std::string noCompatibleVersionMessage() const;
    std::string noMatchingPropertiesMessage() const;

private:
    std::string name_;
    core::APIVersion version_;
    boost::property_tree::ptree requestedProperties_;
    // (path, value) for every leaf of requestedProperties_, computed once.
    std::vector<std::pair<std::string, std::string>> requiredLeaves_;
    LogFunction log_;
};

}  // namespace agent::spf::servicepublisher
