#include "cppmicroservices/LDAPProp.h"

namespace cppmicroservices
{
    LDAPProp::LDAPProp(std::string const& property) : m_property(property) {}

    LDAPPropExpr
    LDAPProp::Compare(char const* op, std::string const& value) const
    {
        return LDAPPropExpr("(" + m_property + op + value + ")");
    }

    LDAPPropExpr
    LDAPProp::operator==(std::string const& s) const
    {
        return Compare("=", s);
    }

    LDAPPropExpr
    LDAPProp::operator==(char const* s) const
    {
        return Compare("=", s);
    }

    LDAPPropExpr
    LDAPProp::operator==(bool b) const
    {
        return Compare("=", b ? "true" : "false");
    }

    LDAPPropExpr
    LDAPProp::operator==(Any const& s) const
    {
        return Compare("=", s.ToStringNoExcept());
    }

    LDAPPropExpr
    LDAPProp::operator!=(std::string const& s) const
    {
        return !Compare("=", s);
    }

    LDAPPropExpr
    LDAPProp::operator!=(char const* s) const
    {
        return !Compare("=", s);
    }

    LDAPPropExpr
    LDAPProp::operator!=(bool b) const
    {
        return !Compare("=", b ? "true" : "false");
    }

    LDAPPropExpr
    LDAPProp::operator!=(Any const& s) const
    {
        return !Compare("=", s.ToStringNoExcept());
    }

    LDAPPropExpr
    LDAPProp::operator>=(std::string const& s) const
    {
        return Compare(">=", s);
    }

    LDAPPropExpr
    LDAPProp::operator>=(char const* s) const
    {
        return Compare(">=", s);
    }

    LDAPPropExpr
    LDAPProp::operator>=(Any const& s) const
    {
        return Compare(">=", s.ToStringNoExcept());
    }

    LDAPPropExpr
    LDAPProp::operator<=(std::string const& s) const
    {
        return Compare("<=", s);
    }

    LDAPPropExpr
    LDAPProp::operator<=(char const* s) const
    {
        return Compare("<=", s);
    }

    LDAPPropExpr
    LDAPProp::operator<=(Any const& s) const
    {
        return Compare("<=", s.ToStringNoExcept());
    }

    LDAPPropExpr
    LDAPProp::Approx(std::string const& s) const
    {
        return Compare("~=", s);
    }

    LDAPPropExpr
    LDAPProp::Approx(char const* s) const
    {
        return Compare("~=", s);
    }

    LDAPPropExpr
    LDAPProp::Approx(Any const& s) const
    {
        return Compare("~=", s.ToStringNoExcept());
    }

    LDAPProp::operator LDAPPropExpr() const
    {
        return LDAPPropExpr("(" + m_property + "=*)");
    }

    LDAPPropExpr
    LDAPProp::operator!() const
    {
        return LDAPPropExpr("(!(" + m_property + "=*))");
    }
} // namespace cppmicroservices
