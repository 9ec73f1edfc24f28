#include "cppmicroservices/FrameworkEvent.h"

#include <ostream>

namespace cppmicroservices
{
    FrameworkEvent::FrameworkEvent() : type(FRAMEWORK_STARTED), valid(false) {}

    FrameworkEvent::FrameworkEvent(Type type,
                                   Bundle const& bundle,
                                   std::string const& message,
                                   std::exception_ptr const exception)
        : bundle(bundle)
        , message(message)
        , exception(exception)
        , type(type)
        , valid(true)
    {
    }

    FrameworkEvent::operator bool() const { return valid; }

    Bundle
    FrameworkEvent::GetBundle() const
    {
        return bundle;
    }

    std::string
    FrameworkEvent::GetMessage() const
    {
        return message;
    }

    std::exception_ptr
    FrameworkEvent::GetThrowable() const
    {
        return exception;
    }

    FrameworkEvent::Type
    FrameworkEvent::GetType() const
    {
        return type;
    }

    std::ostream&
    operator<<(std::ostream& os, FrameworkEvent::Type const& type)
    {
        switch (type)
        {
            case FrameworkEvent::FRAMEWORK_STARTED:
                return os << "STARTED";
            case FrameworkEvent::FRAMEWORK_ERROR:
                return os << "ERROR";
            case FrameworkEvent::FRAMEWORK_WARNING:
                return os << "WARNING";
            case FrameworkEvent::FRAMEWORK_INFO:
                return os << "INFO";
            case FrameworkEvent::FRAMEWORK_STOPPED:
                return os << "STOPPED";
            case FrameworkEvent::FRAMEWORK_STOPPED_UPDATE:
                return os << "STOPPED_UPDATE";
            case FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT:
                return os << "WAIT_TIMEDOUT";
        }
        return os << "unknown framework event type (" << static_cast<uint32_t>(type) << ")";
    }

    std::ostream&
    operator<<(std::ostream& os, FrameworkEvent const& evt)
    {
        if (!evt)
        {
            return os << "NONE";
        }
        os << "FrameworkEvent: [" << evt.GetType() << "] " << evt.GetMessage();
        if (auto error = evt.GetThrowable())
        {
            try
            {
                std::rethrow_exception(error);
            }
            catch (std::exception const& e)
            {
                os << " (" << e.what() << ")";
            }
            catch (...)
            {
                os << " (unknown exception)";
            }
        }
        return os;
    }

    bool
    operator==(FrameworkEvent const& rhs, FrameworkEvent const& lhs)
    {
        return rhs.GetType() == lhs.GetType() && rhs.GetBundle() == lhs.GetBundle()
               && rhs.GetMessage() == lhs.GetMessage() && rhs.GetThrowable() == lhs.GetThrowable();
    }
} // namespace cppmicroservices
