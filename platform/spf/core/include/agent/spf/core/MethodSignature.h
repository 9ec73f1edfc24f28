#pragma once

#include <map>
#include <string>
#include <vector>

namespace agent::spf::core {

// What a method takes and returns, named as a client converting values to and from the wire
// needs them: "boolean", "int", "long", "float", "double", "string", "bytes", "uuid",
// "array<T>", "map<T>" (string keys), "optional<T>", "callback" (an exported callback),
// "stream" (an exported data sink or source), "record:<C++ name>" for a type of the
// service's own, and "void" as the result of a method without one.
//
// Its text form, "(int, long) -> long" or "() -> void", is what a legacy service publishes in
// its directory metadata under methodSignatureKey(method), one entry per method.
//
// A plain value: no member blocks, and const members may run on any number of threads.
struct MethodSignature {
    std::vector<std::string> argumentTypes;
    std::string resultType = "void";

    // "(T1, T2) -> R", the names as they are. Throws only std::bad_alloc.
    std::string toString() const;

    // Reads the text form. Spaces around names and punctuation are optional, and dropped;
    // a record's name runs to the next ',', ')' or '>' outside its own brackets. Throws
    // std::invalid_argument "Malformed method signature '<text>': <what> at offset <n>" for
    // anything else: an unknown type name, "void" as an argument or inside another type,
    // missing punctuation, a nameless record, types nested more than 32 deep, text after the
    // result.
    static MethodSignature parse(const std::string& text);

    friend bool operator==(const MethodSignature& a, const MethodSignature& b) {
        return a.argumentTypes == b.argumentTypes && a.resultType == b.resultType;
    }
    friend bool operator!=(const MethodSignature& a, const MethodSignature& b) { return !(a == b); }
};

// "spf.signature.": the metadata keys of a service's method signatures start with it.
inline constexpr const char* kMethodSignatureKeyPrefix = "spf.signature.";

// "spf.signature.<method>". Throws only std::bad_alloc.
std::string methodSignatureKey(const std::string& method);

// The signatures a directory entry's metadata carries, by method name. An entry whose value
// does not parse, or whose method name is empty, is left out with a warning on the logger
// "agent::spf::core": metadata comes from peers, so a bad entry costs only its method.
// Any thread; throws only std::bad_alloc.
std::map<std::string, MethodSignature> readMethodSignatures(const std::map<std::string, std::string>& metadata);

}  // namespace agent::spf::core
