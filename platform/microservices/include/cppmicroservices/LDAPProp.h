// Builders that write LDAP filter text from C++ expressions:
//
//   std::string f = (LDAPProp("port") >= 1024) && !LDAPProp("local");
//   // "(&(port>=1024)(!(local=*)))"
//
// Values are written as given, so a '*' in a value is a wildcard. Nothing here parses or
// validates; hand the result to LDAPFilter for that. Plain values, no shared state.
#ifndef CPPMICROSERVICES_LDAPPROP_H
#define CPPMICROSERVICES_LDAPPROP_H

#include "cppmicroservices/Any.h"

#include <sstream>
#include <string>
#include <type_traits>

namespace cppmicroservices
{
    // A piece of filter text. A default-constructed (null) expression is the neutral
    // element of && and ||.
    class US_Framework_EXPORT LDAPPropExpr
    {
      public:
        LDAPPropExpr();
        explicit LDAPPropExpr(std::string const& expr);

        // Negates the expression in place and returns it. A null expression stays null.
        LDAPPropExpr& operator!();

        operator std::string() const;

        // True for the null expression.
        bool IsNull() const;

        // In-place conjunction / disjunction.
        LDAPPropExpr& operator&=(LDAPPropExpr const& right);
        LDAPPropExpr& operator|=(LDAPPropExpr const& right);

      private:
        std::string m_ldapExpr;
    };

    // One property key, to be compared with a value.
    class US_Framework_EXPORT LDAPProp
    {
      public:
        LDAPProp(std::string const& property);

        LDAPPropExpr operator==(std::string const& s) const;
        LDAPPropExpr operator==(char const* s) const;
        LDAPPropExpr operator==(bool b) const;
        LDAPPropExpr operator==(Any const& s) const;
        template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T> && !std::is_same_v<T, bool>>>
        LDAPPropExpr
        operator==(T const& s) const
        {
            return Compare("=", Text(s));
        }

        LDAPPropExpr operator!=(std::string const& s) const;
        LDAPPropExpr operator!=(char const* s) const;
        LDAPPropExpr operator!=(bool b) const;
        LDAPPropExpr operator!=(Any const& s) const;
        template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T> && !std::is_same_v<T, bool>>>
        LDAPPropExpr
        operator!=(T const& s) const
        {
            return !Compare("=", Text(s));
        }

        LDAPPropExpr operator>=(std::string const& s) const;
        LDAPPropExpr operator>=(char const* s) const;
        LDAPPropExpr operator>=(Any const& s) const;
        template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T> && !std::is_same_v<T, bool>>>
        LDAPPropExpr
        operator>=(T const& s) const
        {
            return Compare(">=", Text(s));
        }

        LDAPPropExpr operator<=(std::string const& s) const;
        LDAPPropExpr operator<=(char const* s) const;
        LDAPPropExpr operator<=(Any const& s) const;
        template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T> && !std::is_same_v<T, bool>>>
        LDAPPropExpr
        operator<=(T const& s) const
        {
            return Compare("<=", Text(s));
        }

        // (key~=value)
        LDAPPropExpr Approx(std::string const& s) const;
        LDAPPropExpr Approx(char const* s) const;
        LDAPPropExpr Approx(Any const& s) const;

        // (key=*): the property is set.
        operator LDAPPropExpr() const;

        // (!(key=*)): the property is not set.
        LDAPPropExpr operator!() const;

      private:
        LDAPProp& operator=(LDAPProp const&) = delete;

        template <typename T>
        static std::string
        Text(T const& value)
        {
            std::ostringstream os;
            any_value_to_string(os, value);
            return os.str();
        }

        LDAPPropExpr Compare(char const* op, std::string const& value) const;

        std::string m_property;
    };

    // (&(left)(right)); a null side yields the other side.
    US_Framework_EXPORT LDAPPropExpr operator&&(LDAPPropExpr const& left, LDAPPropExpr const& right);

    // (|(left)(right)); a null side yields the other side.
    US_Framework_EXPORT LDAPPropExpr operator||(LDAPPropExpr const& left, LDAPPropExpr const& right);
} // namespace cppmicroservices

#endif
