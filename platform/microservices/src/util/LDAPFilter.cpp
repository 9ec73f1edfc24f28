#include "cppmicroservices/LDAPFilter.h"

#include "LDAPFilterParser.h"
#include "LDAPMatcher.h"

namespace cppmicroservices
{
    LDAPFilter::LDAPFilter() = default;

    LDAPFilter::LDAPFilter(std::string const& filter) : d(LDAPFilterParser::Parse(filter)) {}

    LDAPFilter::LDAPFilter(LDAPFilter const& other) = default;

    LDAPFilter::LDAPFilter(LDAPFilter&& other) noexcept = default;

    LDAPFilter& LDAPFilter::operator=(LDAPFilter const& filter) = default;

    LDAPFilter& LDAPFilter::operator=(LDAPFilter&& filter) noexcept = default;

    LDAPFilter::~LDAPFilter() = default;

    LDAPFilter::operator bool() const
    {
        return d != nullptr;
    }

    bool
    LDAPFilter::Match(AnyMap const& dictionary) const
    {
        if (!d)
        {
            return false;
        }
        LDAPMatcher::RejectCaseVariants(dictionary);
        return LDAPMatcher::Evaluate(d->root, dictionary, false);
    }

    bool
    LDAPFilter::MatchCase(AnyMap const& dictionary) const
    {
        if (!d)
        {
            return false;
        }
        LDAPMatcher::RejectCaseVariants(dictionary);
        return LDAPMatcher::Evaluate(d->root, dictionary, true);
    }

    std::string
    LDAPFilter::ToString() const
    {
        return d ? d->normalized : std::string();
    }

    bool
    LDAPFilter::operator==(LDAPFilter const& other) const
    {
        if (d == other.d)
        {
            return true;
        }
        return (d ? d->normalized : std::string()) == (other.d ? other.d->normalized : std::string());
    }

    std::ostream&
    operator<<(std::ostream& os, LDAPFilter const& filter)
    {
        return os << filter.ToString();
    }

    namespace detail
    {
        bool
        LDAPMatchValidatedProperties(LDAPFilter const& filter, AnyMap const& properties) noexcept
        {
            return filter.d && LDAPMatcher::Evaluate(filter.d->root, properties, false);
        }
    } // namespace detail
} // namespace cppmicroservices
