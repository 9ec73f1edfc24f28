#ifndef CPPMICROSERVICES_SRC_SERVICE_SIMPLEOBJECTCLASSFILTER_H
#define CPPMICROSERVICES_SRC_SERVICE_SIMPLEOBJECTCLASSFILTER_H

#include <optional>
#include <string>

namespace cppmicroservices
{
    // The class named by a filter of the exact form "(objectclass=<name>)",
    // with nothing in the name that a filter treats specially, so that the
    // class index can stand in for the filter; nothing for any other filter.
    std::optional<std::string> SimpleObjectClassFilter(std::string const& filter);
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_SERVICE_SIMPLEOBJECTCLASSFILTER_H
