#include "ConfigurationDirectoryWatcher.h"

#include "CmLogger.h"
#include "ConfigurationFileName.h"
#include "ConfigurationFileParser.h"

#include "foundation/log/Severity.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cppmicroservices::cmimpl
{
    namespace
    {
        using foundation::log::severity::debug;
        using foundation::log::severity::error;
        using foundation::log::severity::warning;

        constexpr std::uint32_t kWatchedEvents
            = IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

        std::string
        ErrorText(int number)
        {
            return std::error_code(number, std::generic_category()).message();
        }

        // An LDAP filter value matching text literally.
        std::string
        Escaped(std::string const& text)
        {
            std::string escaped;
            for (char c : text)
            {
                if (c == '\\' || c == '(' || c == ')' || c == '*')
                {
                    escaped += '\\';
                }
                escaped += c;
            }
            return escaped;
        }

        enum class ReadResult
        {
            Read,
            Gone, ///< no longer there, or a folder: nothing to report
            Failed
        };

        // Reads the regular file at path into text, or says in problem why
        // it cannot. Never blocks on a FIFO or device: those are refused.
        ReadResult
        ReadFile(std::string const& path, std::size_t limit, std::string& text, std::string& problem)
        {
            int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
            if (fd < 0)
            {
                int const number = errno;
                problem = "cannot be read: " + ErrorText(number);
                return number == ENOENT ? ReadResult::Gone : ReadResult::Failed;
            }
            ReadResult result = ReadResult::Read;
            struct stat status{};
            if (::fstat(fd, &status) != 0)
            {
                problem = "cannot be read: " + ErrorText(errno);
                result = ReadResult::Failed;
            }
            else if (S_ISDIR(status.st_mode))
            {
                result = ReadResult::Gone;
            }
            else if (!S_ISREG(status.st_mode))
            {
                problem = "cannot be read: not a regular file";
                result = ReadResult::Failed;
            }
            else
            {
                char chunk[16 * 1024];
                for (;;)
                {
                    ssize_t const n = ::read(fd, chunk, sizeof chunk);
                    if (n < 0 && errno == EINTR)
                    {
                        continue;
                    }
                    if (n < 0)
                    {
                        problem = "cannot be read: " + ErrorText(errno);
                        result = ReadResult::Failed;
                        break;
                    }
                    if (n == 0)
                    {
                        break;
                    }
                    if (text.size() + static_cast<std::size_t>(n) > limit)
                    {
                        problem = "larger than " + std::to_string(limit) + " bytes";
                        result = ReadResult::Failed;
                        break;
                    }
                    text.append(chunk, static_cast<std::size_t>(n));
                }
            }
            ::close(fd);
            return result;
        }
    } // namespace

    ConfigurationDirectoryWatcher::ConfigurationDirectoryWatcher(std::shared_ptr<service::cm::ConfigurationAdmin> admin,
                                                                 std::string directory)
        : admin(std::move(admin))
        , directory(std::move(directory))
    {
    }

    ConfigurationDirectoryWatcher::~ConfigurationDirectoryWatcher() { Stop(); }

    bool
    ConfigurationDirectoryWatcher::Start()
    {
        inotifyFd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (inotifyFd < 0)
        {
            FOUNDATION_LOG(CmLogger(), error)
                << "Cannot watch configuration directory " << directory << ": " << ErrorText(errno);
            return false;
        }
        stopFd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        if (stopFd < 0 || ::inotify_add_watch(inotifyFd, directory.c_str(), kWatchedEvents) < 0)
        {
            FOUNDATION_LOG(CmLogger(), error)
                << "Cannot watch configuration directory " << directory << ": " << ErrorText(errno);
            ::close(inotifyFd);
            inotifyFd = -1;
            if (stopFd >= 0)
            {
                ::close(stopFd);
                stopFd = -1;
            }
            return false;
        }
        // Watching before scanning: a file written in between is seen at
        // least once, perhaps twice, never missed.
        Scan();
        thread = std::thread(&ConfigurationDirectoryWatcher::Run, this);
        return true;
    }

    void
    ConfigurationDirectoryWatcher::Stop()
    {
        if (thread.joinable())
        {
            std::uint64_t const one = 1;
            if (::write(stopFd, &one, sizeof one) < 0)
            {
                // Only fails when the counter is full, which already wakes the thread.
            }
            thread.join();
        }
        for (int* fd : { &inotifyFd, &stopFd })
        {
            if (*fd >= 0)
            {
                ::close(*fd);
                *fd = -1;
            }
        }
    }

    void
    ConfigurationDirectoryWatcher::Run()
    {
        alignas(inotify_event) char buffer[64 * 1024];
        pollfd fds[2] = { { inotifyFd, POLLIN, 0 }, { stopFd, POLLIN, 0 } };
        for (;;)
        {
            if (::poll(fds, 2, -1) < 0)
            {
                if (errno == EINTR)
                {
                    continue;
                }
                FOUNDATION_LOG(CmLogger(), error)
                    << "Stopped watching configuration directory " << directory << ": " << ErrorText(errno);
                return;
            }
            if (fds[1].revents != 0)
            {
                return;
            }
            if (fds[0].revents == 0)
            {
                continue;
            }
            ssize_t const length = ::read(inotifyFd, buffer, sizeof buffer);
            if (length < 0)
            {
                if (errno == EINTR || errno == EAGAIN)
                {
                    continue;
                }
                FOUNDATION_LOG(CmLogger(), error)
                    << "Stopped watching configuration directory " << directory << ": " << ErrorText(errno);
                return;
            }
            if (!HandleEvents(buffer, static_cast<std::size_t>(length)))
            {
                return;
            }
        }
    }

    bool
    ConfigurationDirectoryWatcher::HandleEvents(char const* buffer, std::size_t length)
    {
        std::size_t offset = 0;
        while (offset + sizeof(inotify_event) <= length)
        {
            inotify_event event;
            std::memcpy(&event, buffer + offset, sizeof event);
            char const* const name = buffer + offset + sizeof event;
            offset += sizeof event + event.len;
            if ((event.mask & IN_Q_OVERFLOW) != 0)
            {
                FOUNDATION_LOG(CmLogger(), warning)
                    << "Configuration directory " << directory << " changed faster than it was read; rescanning";
                Scan();
                continue;
            }
            if ((event.mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) != 0)
            {
                FOUNDATION_LOG(CmLogger(), error) << "Configuration directory " << directory
                                                  << " was removed or moved; it is no longer watched";
                return false;
            }
            if (event.len == 0 || (event.mask & IN_ISDIR) != 0)
            {
                continue;
            }
            std::string const fileName(name, ::strnlen(name, event.len));
            auto const pid = ConfigurationFileName::ToPid(fileName);
            if (!pid)
            {
                continue;
            }
            if ((event.mask & (IN_CLOSE_WRITE | IN_MOVED_TO)) != 0)
            {
                Apply(fileName);
            }
            else if ((event.mask & (IN_DELETE | IN_MOVED_FROM)) != 0)
            {
                Forget(*pid);
            }
        }
        return true;
    }

    void
    ConfigurationDirectoryWatcher::Scan()
    {
        std::vector<std::string> names;
        std::error_code failure;
        for (std::filesystem::directory_iterator it(directory, failure), end; !failure && it != end;
             it.increment(failure))
        {
            names.push_back(it->path().filename().string());
        }
        if (failure)
        {
            FOUNDATION_LOG(CmLogger(), error)
                << "Cannot read configuration directory " << directory << ": " << failure.message();
            return;
        }
        std::sort(names.begin(), names.end());
        std::set<std::string> present;
        for (auto const& name : names)
        {
            if (auto pid = ConfigurationFileName::ToPid(name))
            {
                present.insert(*pid);
                Apply(name);
            }
        }
        std::vector<std::string> gone;
        std::set_difference(filePids.begin(), filePids.end(), present.begin(), present.end(), std::back_inserter(gone));
        for (auto const& pid : gone)
        {
            Forget(pid);
        }
    }

    void
    ConfigurationDirectoryWatcher::Apply(std::string const& fileName)
    {
        auto const pid = ConfigurationFileName::ToPid(fileName);
        std::string const path = PathOf(fileName);
        std::string text;
        std::string problem;
        switch (ReadFile(path, kMaxFileSize, text, problem))
        {
            case ReadResult::Read:
                break;
            case ReadResult::Gone:
                return; // its removal event follows, or it is a folder
            case ReadResult::Failed:
                FOUNDATION_LOG(CmLogger(), error) << "Configuration file " << path << " ignored: " << problem;
                return;
        }
        AnyMap properties(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
        try
        {
            properties = ConfigurationFileParser::Parse(text);
        }
        catch (std::runtime_error const& e)
        {
            FOUNDATION_LOG(CmLogger(), error) << "Configuration file " << path << " ignored: " << e.what();
            return;
        }
        if (properties.count("modificationCount") == 0)
        {
            int& count = modificationCounts[*pid];
            if (count < INT_MAX)
            {
                ++count;
            }
            properties["modificationCount"] = count;
        }
        // Another thread may remove the configuration between getting and
        // updating it; the second attempt then creates it anew.
        for (int attempt = 0; attempt < 2; ++attempt)
        {
            try
            {
                admin->GetConfiguration(*pid)->Update(properties);
                filePids.insert(*pid);
                FOUNDATION_LOG(CmLogger(), debug) << "Configuration " << *pid << " updated from " << path;
                return;
            }
            catch (std::exception const& e)
            {
                if (attempt == 1)
                {
                    FOUNDATION_LOG(CmLogger(), error)
                        << "Configuration " << *pid << " from " << path << " not updated: " << e.what();
                }
            }
        }
    }

    void
    ConfigurationDirectoryWatcher::Forget(std::string const& pid)
    {
        filePids.erase(pid);
        try
        {
            for (auto const& configuration : admin->ListConfigurations("(pid=" + Escaped(pid) + ")"))
            {
                try
                {
                    configuration->Remove();
                }
                catch (std::runtime_error const&)
                {
                    // Removed by somebody else meanwhile.
                }
            }
            FOUNDATION_LOG(CmLogger(), debug) << "Configuration " << pid << " removed with its file";
        }
        catch (std::exception const& e)
        {
            FOUNDATION_LOG(CmLogger(), error) << "Configuration " << pid << " not removed: " << e.what();
        }
    }

    std::string
    ConfigurationDirectoryWatcher::PathOf(std::string const& fileName) const
    {
        return (std::filesystem::path(directory) / fileName).string();
    }
} // namespace cppmicroservices::cmimpl
