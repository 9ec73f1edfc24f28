#ifndef CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONDIRECTORYWATCHER_H
#define CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONDIRECTORYWATCHER_H

#include "cppmicroservices/cm/ConfigurationAdmin.hpp"

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>

namespace cppmicroservices::cmimpl
{
    // Keeps the factory configurations of a folder's files in a
    // ConfigurationAdmin: every "<factoryPid>~<name>.json" file (see
    // ConfigurationFileName) is the configuration "<factoryPid>~<name>",
    // its JSON object the properties (see ConfigurationFileParser).
    //
    // Writing a file (closed after writing, or moved in) updates its
    // configuration; deleting it (or moving it out) removes it. Unless the
    // file sets modificationCount, the watcher sets it to an int that grows
    // by one with every update this watcher makes for the PID, starting at 1,
    // also across delete and re-create. A file that cannot be read or parsed
    // is logged at error with its path and the reason and changes nothing.
    // Other files are ignored. Changes are followed through inotify on a
    // thread of the watcher's own; an overflow of the event queue leads to a
    // rescan of the folder.
    //
    // Lifecycle: Start once, then Stop (idempotent, blocking) or destroy;
    // one owner calls them, one after the other. The watcher holds no lock:
    // its state belongs to Start's scan and then to its thread. The admin is
    // only called through its public interface.
    class ConfigurationDirectoryWatcher
    {
      public:
        static constexpr std::size_t kMaxFileSize = 4 * 1024 * 1024;

        ConfigurationDirectoryWatcher(std::shared_ptr<service::cm::ConfigurationAdmin> admin, std::string directory);
        ~ConfigurationDirectoryWatcher();
        ConfigurationDirectoryWatcher(ConfigurationDirectoryWatcher const&) = delete;
        ConfigurationDirectoryWatcher& operator=(ConfigurationDirectoryWatcher const&) = delete;

        // Watches the folder, applies every configuration file already in
        // it (on the calling thread), then follows changes on the watcher's
        // thread. Returns false, after logging why, when the folder cannot be
        // watched. Blocks while it reads the folder; never throws except
        // std::bad_alloc and std::system_error (no thread).
        bool Start();

        // Ends the watcher's thread and waits for it. Configurations stay as
        // they are. Any thread but the watcher's own.
        void Stop();

      private:
        void Run();
        // Handles the events in buffer; false once the folder is no longer
        // watched.
        bool HandleEvents(char const* buffer, std::size_t length);
        void Scan();
        void Apply(std::string const& fileName);
        void Forget(std::string const& pid);
        std::string PathOf(std::string const& fileName) const;

        std::shared_ptr<service::cm::ConfigurationAdmin> const admin;
        std::string const directory;

        int inotifyFd = -1;
        int stopFd = -1; ///< an eventfd written by Stop to wake the thread

        std::thread thread;

        // Start's scan and then the watcher thread only, one after the other.
        std::map<std::string, int> modificationCounts; ///< the last count this watcher set, per PID
        std::set<std::string> filePids;                 ///< PIDs whose file was last seen valid
    };
} // namespace cppmicroservices::cmimpl

#endif // CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONDIRECTORYWATCHER_H
