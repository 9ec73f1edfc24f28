#pragma once

#include "agent/spf/core/GenericPayload.h"

#include <functional>
#include <istream>

namespace agent::spf::serialisation {

// Reads one serialised value from a stream into a payload of one slot (of none for a void
// result). Owned by value; cheap to copy (copies share the function). operator() may run on
// many threads at once, each with its own stream.
class Deserialiser {
public:
    using Function = std::function<core::GenericPayload(std::istream& in)>;

    // An invalid deserialiser: what the catalogue gives for a (content type, type) it does
    // not know.
    Deserialiser() = default;
    explicit Deserialiser(Function function) : function_(std::move(function)) {}

    bool isValid() const noexcept { return static_cast<bool>(function_); }
    explicit operator bool() const noexcept { return isValid(); }

    // Runs the function on the caller's thread and passes its failures on. An invalid
    // deserialiser fails with std::runtime_error
    // "Attempt to invoke an invalid deserialiser - no deserialising function set".
    core::GenericPayload operator()(std::istream& in) const;

private:
    Function function_;
};

}  // namespace agent::spf::serialisation
