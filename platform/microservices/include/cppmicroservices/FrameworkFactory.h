#ifndef CPPMICROSERVICES_FRAMEWORKFACTORY_H
#define CPPMICROSERVICES_FRAMEWORKFACTORY_H

#include "cppmicroservices/Any.h"
#include "cppmicroservices/GlobalConfig.h"

#include <iosfwd>
#include <string>
#include <unordered_map>

namespace cppmicroservices
{
    class Framework;

    /// Framework properties, see Constants::FRAMEWORK_*. Readable by every
    /// bundle through BundleContext::GetProperty.
    using FrameworkConfiguration = std::unordered_map<std::string, Any>;

    /// Creates frameworks. Each framework is independent: its own bundles,
    /// registry and listeners.
    class US_Framework_EXPORT FrameworkFactory
    {
      public:
        /// A new framework in state INSTALLED. When logger is given, framework
        /// diagnostics are also written there (the caller keeps it alive as
        /// long as the framework); Constants::FRAMEWORK_LOG true turns on
        /// informational messages.
        Framework NewFramework(FrameworkConfiguration const& configuration, std::ostream* logger = nullptr);
        Framework NewFramework();
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_FRAMEWORKFACTORY_H
