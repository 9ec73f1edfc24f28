// The parsed form of an LDAP filter, shared (immutable) by every copy of an LDAPFilter.
#ifndef CPPMICROSERVICES_SRC_UTIL_LDAPFILTERDATA_H
#define CPPMICROSERVICES_SRC_UTIL_LDAPFILTERDATA_H

#include <cstdint>
#include <string>
#include <vector>

namespace cppmicroservices
{
    enum class LDAPOp : std::uint8_t
    {
        And,
        Or,
        Not,
        Present,   // (key=*)
        Equal,     // (key=value) without wildcards
        Substring, // (key=va*l*ue)
        Approx,    // (key~=value)
        LessEq,    // (key<=value)
        GreaterEq  // (key>=value)
    };

    // One node of the filter tree. Everything a comparison needs is worked out once at parse
    // time, so that matching neither parses nor allocates.
    struct LDAPNode
    {
        LDAPOp op = LDAPOp::And;
        std::vector<LDAPNode> children; // And, Or (one or more), Not (exactly one)

        std::string key;   // trimmed, as written
        std::string value; // unescaped; for Substring the pieces joined without the '*'s

        // Substring: the text between wildcards. The first piece must start the value and
        // the last must end it; both may be empty. Always at least two pieces.
        std::vector<std::string> pieces;

        // Approx on strings: the value lower-cased with all whitespace removed.
        std::string approx;

        // The value read as a number or a bool, where it reads as one.
        bool hasSigned = false;
        bool hasUnsigned = false;
        bool hasDouble = false;
        long long signedValue = 0;
        unsigned long long unsignedValue = 0;
        double doubleValue = 0.0;
        std::int8_t boolValue = -1; // 1 for "true", 0 for "false" (any case), -1 otherwise
    };

    class LDAPFilterData
    {
      public:
        LDAPNode root;
        std::string normalized; // what LDAPFilter::ToString returns
    };
} // namespace cppmicroservices

#endif
