#ifndef CPPMICROSERVICES_SRC_FRAMEWORK_FRAMEWORKLOG_H
#define CPPMICROSERVICES_SRC_FRAMEWORK_FRAMEWORKLOG_H

#include "foundation/log/DiagnosticLogger.h"

#include <iosfwd>
#include <mutex>
#include <string>

namespace cppmicroservices
{
    // The framework's diagnostics: a foundation logger named
    // "cppmicroservices", plus the optional stream given to NewFramework.
    // Any thread; never throws. Informational messages are written only when
    // the framework was configured with FRAMEWORK_LOG true.
    class FrameworkLog
    {
      public:
        FrameworkLog(std::ostream* stream, bool verbose);
        FrameworkLog(FrameworkLog const&) = delete;
        FrameworkLog& operator=(FrameworkLog const&) = delete;

        void Error(std::string const& text) const noexcept;
        void Warning(std::string const& text) const noexcept;
        void Info(std::string const& text) const noexcept;

      private:
        void Write(std::uint32_t severity, char const* label, std::string const& text) const noexcept;

        foundation::log::diagnostic_logger logger;
        bool const verbose;

        // Serialises writes so that lines from different threads do not mix.
        mutable std::mutex streamMutex;
        std::ostream* const stream; ///< not owned; may be null
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_FRAMEWORK_FRAMEWORKLOG_H
