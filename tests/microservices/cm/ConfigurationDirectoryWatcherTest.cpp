// The configuration folder: files written, rewritten, moved and deleted in
// a folder named by the framework property become factory configurations.

#include "CmTestSupport.h"

#include "cppmicroservices/Constants.h"

#include <filesystem>
#include <fstream>
#include <functional>

#include <sys/stat.h>

using namespace cmtest;
using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using cppmicroservices::any_cast;
using cppmicroservices::ServiceRegistration;
using cppmicroservices::service::cm::ManagedServiceFactory;

namespace fs = std::filesystem;

namespace
{
    class ConfigurationDirectoryWatcherTest : public ConfigurationAdminFixture
    {
      protected:
        // The folder is in the framework's storage, removed with it.
        cppmicroservices::FrameworkConfiguration
        Configuration() override
        {
            directory = storage / "configurations";
            fs::create_directories(directory);
            auto configuration = ConfigurationAdminFixture::Configuration();
            configuration["org.cppmicroservices.cm.configuration.directory"] = directory.string();
            return configuration;
        }

        void
        SetUp() override
        {
            ConfigurationAdminFixture::SetUp();
            factory = std::make_shared<RecordingFactory>();
            registration = Register<ManagedServiceFactory>(factory, std::string("fp"));
        }

        // Starts the bundle again (files written meanwhile are there at its start).
        void
        Restart(std::function<void()> const& whileStopped)
        {
            cmBundle.Stop();
            whileStopped();
            cmBundle.Start();
            admin = context.GetService(context.GetServiceReference<cppmicroservices::service::cm::ConfigurationAdmin>());
        }

        // Writes in place: the watcher sees the file closed after writing.
        void
        Write(std::string const& name, std::string const& text)
        {
            std::ofstream(directory / name, std::ios::binary | std::ios::trunc) << text;
        }

        // Writes a temporary file and moves it into place.
        void
        WriteByRename(std::string const& name, std::string const& text)
        {
            Write(".incoming", text);
            fs::rename(directory / ".incoming", directory / name);
        }

        fs::path directory;
        std::shared_ptr<RecordingFactory> factory;
        ServiceRegistration<ManagedServiceFactory> registration;
    };

    int
    Count(AnyMap const& properties)
    {
        return any_cast<int>(properties.at("modificationCount"));
    }
} // namespace

TEST_F(ConfigurationDirectoryWatcherTest, FilesPresentAtStartAreAppliedAndOthersIgnored)
{
    Restart(
        [&]
        {
            Write("fp~early.json", R"({"n": 1})");
            Write("fp~broken.json", R"({"n": )");
            Write("readme.txt", "not a configuration");
            Write("nofactory.json", R"({"n": 2})");
        });
    ASSERT_TRUE(factory->WaitForCount(1));
    auto const calls = factory->Calls();
    EXPECT_EQ(1, N(calls[0].properties));
    EXPECT_EQ(1, Count(calls[0].properties));

    auto listed = admin->ListConfigurations();
    ASSERT_EQ(1u, listed.size()) << "only fp~early is a valid configuration file";
    EXPECT_EQ("fp~early", listed[0]->GetPid());
}

TEST_F(ConfigurationDirectoryWatcherTest, WrittenChangedDeletedMovedAndRecreatedFilesFollowTheConfiguration)
{
    Write("fp~a.json", R"({"n": 1})");
    ASSERT_TRUE(factory->WaitForCount(1));
    WriteByRename("fp~a.json", R"({"n": 2})");
    ASSERT_TRUE(factory->WaitForCount(2));
    fs::remove(directory / "fp~a.json");
    ASSERT_TRUE(factory->WaitForCount(3));
    Write("fp~a.json", R"({"n": 3})");
    ASSERT_TRUE(factory->WaitForCount(4));
    Write("fp~moved.json", R"({"modificationCount": 41})");
    ASSERT_TRUE(factory->WaitForCount(5));
    fs::rename(directory / "fp~moved.json", directory / "fp~moved.json.bak");
    ASSERT_TRUE(factory->WaitForCount(6));

    auto const calls = factory->Calls();
    ASSERT_EQ((std::vector<std::string>{ "updated fp~a 1", "updated fp~a 2", "removed fp~a", "updated fp~a 3",
                                         "updated fp~moved", "removed fp~moved" }),
              Texts(calls)) << "moving a file out removes its configuration";
    EXPECT_EQ(1, Count(calls[0].properties));
    EXPECT_EQ(2, Count(calls[1].properties));
    EXPECT_EQ(3, Count(calls[3].properties)) << "the count keeps growing after a delete and re-create";
    EXPECT_EQ("fp", admin->GetConfiguration("fp~a")->GetFactoryPid());
    EXPECT_EQ(41, Count(calls[4].properties)) << "a count from the file is kept";
    EXPECT_TRUE(admin->ListConfigurations("(pid=fp~moved)").empty());
}

TEST_F(ConfigurationDirectoryWatcherTest, BrokenFileIsReportedWithItsPathAndTheLastGoodConfigurationStays)
{
    CmLogCapture capture;
    Write("fp~b.json", R"({"n": 1})");
    ASSERT_TRUE(factory->WaitForCount(1));

    Write("fp~b.json", R"({"n": 2,,})");
    std::string const path = (directory / "fp~b.json").string();
    EXPECT_TRUE(capture.WaitForText("Configuration file " + path + " ignored: not valid JSON: parse error at line 1"));
    Write("fp~b.json", R"([1, 2])");
    EXPECT_TRUE(capture.WaitForText("Configuration file " + path
                                    + " ignored: the top-level value is not a JSON object"));

    // A later good file still counts on from the last update made.
    Write("fp~b.json", R"({"n": 3})");
    ASSERT_TRUE(factory->WaitForCount(2));
    auto const calls = factory->Calls();
    EXPECT_EQ(3, N(calls[1].properties));
    EXPECT_EQ(2, Count(calls[1].properties));
    EXPECT_EQ(3, N(admin->GetConfiguration("fp~b")->GetProperties()));
}

TEST_F(ConfigurationDirectoryWatcherTest, FifoOrOversizedFileIsRefusedWithoutBlockingTheWatcher)
{
    CmLogCapture capture;
    ASSERT_EQ(0, ::mkfifo((directory / ".pipe").c_str(), 0600));
    fs::rename(directory / ".pipe", directory / "fp~pipe.json");
    EXPECT_TRUE(capture.WaitForText("Configuration file " + (directory / "fp~pipe.json").string()
                                    + " ignored: cannot be read: not a regular file"));

    std::string big = R"({"text": ")" + std::string(4 * 1024 * 1024, 'x') + R"("})";
    Write("fp~big.json", big);
    EXPECT_TRUE(capture.WaitForText("fp~big.json ignored: larger than 4194304 bytes"));

    Write("fp~after.json", R"({"n": 1})");
    EXPECT_TRUE(factory->WaitForCount(1)) << "the watcher no longer follows the folder";
    EXPECT_TRUE(admin->ListConfigurations("(|(pid=fp~pipe)(pid=fp~big))").empty());
}

TEST_F(ConfigurationDirectoryWatcherTest, MissingDirectoryIsLoggedAndTheBundleStillStarts)
{
    CmLogCapture capture;
    Restart([&] { fs::remove_all(directory); });
    EXPECT_TRUE(capture.WaitForText("Cannot watch configuration directory " + directory.string()
                                    + ": No such file or directory"));
    EXPECT_EQ(cppmicroservices::Bundle::STATE_ACTIVE, cmBundle.GetState());
    EXPECT_TRUE(context.GetServiceReference<cppmicroservices::service::cm::ConfigurationAdmin>());
}
