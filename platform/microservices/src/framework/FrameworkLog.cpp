#include "framework/FrameworkLog.h"

#include "foundation/log/Severity.h"

#include <ostream>

namespace cppmicroservices
{
    FrameworkLog::FrameworkLog(std::ostream* stream, bool verbose)
        : logger("cppmicroservices")
        , verbose(verbose)
        , stream(stream)
    {
    }

    void
    FrameworkLog::Error(std::string const& text) const noexcept
    {
        Write(foundation::log::severity::error, "error", text);
    }

    void
    FrameworkLog::Warning(std::string const& text) const noexcept
    {
        Write(foundation::log::severity::warning, "warning", text);
    }

    void
    FrameworkLog::Info(std::string const& text) const noexcept
    {
        if (verbose)
        {
            Write(foundation::log::severity::info, "info", text);
        }
    }

    void
    FrameworkLog::Write(std::uint32_t severity, char const* label, std::string const& text) const noexcept
    {
        logger.log(severity, text);
        if (stream != nullptr)
        {
            try
            {
                std::lock_guard<std::mutex> lock(streamMutex);
                *stream << "cppmicroservices " << label << ": " << text << std::endl;
            }
            catch (...)
            {
                // A failing stream must not fail the framework.
            }
        }
    }
} // namespace cppmicroservices
