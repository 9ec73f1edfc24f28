#ifndef CPPMICROSERVICES_FRAMEWORKEVENT_H
#define CPPMICROSERVICES_FRAMEWORKEVENT_H

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/GlobalConfig.h"

#include <cstdint>
#include <exception>
#include <iosfwd>
#include <string>

namespace cppmicroservices
{
    /// A framework-wide event: started, stopped, or an error, warning or
    /// information about a bundle. Errors carry the exception that caused
    /// them.
    class US_Framework_EXPORT FrameworkEvent
    {
      public:
        enum Type : uint32_t
        {
            FRAMEWORK_STARTED = 0x00000001,
            FRAMEWORK_ERROR = 0x00000002,
            FRAMEWORK_WARNING = 0x00000010,
            FRAMEWORK_INFO = 0x00000020,
            FRAMEWORK_STOPPED = 0x00000040,
            FRAMEWORK_STOPPED_UPDATE = 0x00000080,
            FRAMEWORK_WAIT_TIMEDOUT = 0x00000200
        };

        /// An invalid event.
        FrameworkEvent();
        FrameworkEvent(Type type,
                       Bundle const& bundle,
                       std::string const& message,
                       std::exception_ptr const exception = nullptr);

        explicit operator bool() const;

        Bundle GetBundle() const;
        std::string GetMessage() const;
        std::exception_ptr GetThrowable() const;
        Type GetType() const;

      private:
        Bundle bundle;
        std::string message;
        std::exception_ptr exception;
        Type type;
        bool valid;
    };

    US_Framework_EXPORT std::ostream& operator<<(std::ostream& os, FrameworkEvent::Type const& type);
    US_Framework_EXPORT std::ostream& operator<<(std::ostream& os, FrameworkEvent const& evt);
    US_Framework_EXPORT bool operator==(FrameworkEvent const& rhs, FrameworkEvent const& lhs);
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_FRAMEWORKEVENT_H
