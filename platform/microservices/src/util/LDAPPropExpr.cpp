#include "cppmicroservices/LDAPProp.h"

namespace cppmicroservices
{
    LDAPPropExpr::LDAPPropExpr() = default;

    LDAPPropExpr::LDAPPropExpr(std::string const& expr) : m_ldapExpr(expr) {}

    LDAPPropExpr&
    LDAPPropExpr::operator!()
    {
        if (!m_ldapExpr.empty())
        {
            m_ldapExpr = "(!" + m_ldapExpr + ")";
        }
        return *this;
    }

    LDAPPropExpr::operator std::string() const
    {
        return m_ldapExpr;
    }

    bool
    LDAPPropExpr::IsNull() const
    {
        return m_ldapExpr.empty();
    }

    LDAPPropExpr&
    LDAPPropExpr::operator&=(LDAPPropExpr const& right)
    {
        if (right.IsNull())
        {
            return *this;
        }
        m_ldapExpr = IsNull() ? right.m_ldapExpr : "(&" + m_ldapExpr + right.m_ldapExpr + ")";
        return *this;
    }

    LDAPPropExpr&
    LDAPPropExpr::operator|=(LDAPPropExpr const& right)
    {
        if (right.IsNull())
        {
            return *this;
        }
        m_ldapExpr = IsNull() ? right.m_ldapExpr : "(|" + m_ldapExpr + right.m_ldapExpr + ")";
        return *this;
    }

    LDAPPropExpr
    operator&&(LDAPPropExpr const& left, LDAPPropExpr const& right)
    {
        LDAPPropExpr result(left);
        result &= right;
        return result;
    }

    LDAPPropExpr
    operator||(LDAPPropExpr const& left, LDAPPropExpr const& right)
    {
        LDAPPropExpr result(left);
        result |= right;
        return result;
    }
} // namespace cppmicroservices
