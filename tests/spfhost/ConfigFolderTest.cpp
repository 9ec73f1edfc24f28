// The configuration folder against a real framework with Configuration Admin: files become
// factory configurations, created, changed and removed as the files are.

#include "ConfigFolder.h"

#include "support/FrameworkFixture.h"
#include "support/WaitFor.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Severity.h"

#include <cppmicroservices/cm/ConfigurationAdmin.hpp>

#include <fstream>

namespace {

using cppmicroservices::AnyMap;
using cppmicroservices::service::cm::ConfigurationAdmin;

constexpr std::chrono::seconds kDeadline{20};

class ConfigFolderTest : public testsupport::FrameworkFixture {
protected:
    void SetUp() override {
        FrameworkFixture::SetUp();
        Install(std::string(TEST_BUNDLE_DIR) + "/libConfigurationAdmin.so").Start();
        admin = context.GetService(context.GetServiceReference<ConfigurationAdmin>());
        folder = storage / "configurations";
        std::filesystem::create_directories(folder);
        foundation::log::addSink(log);
    }
    void TearDown() override {
        foundation::log::removeSink(log);
        FrameworkFixture::TearDown();
    }

    void write(const std::string& name, const std::string& content) {
        // Written aside and renamed, so that no scan reads half a file.
        const auto file = folder / ("qz.spf.legacyservicepublisher~" + name + ".json");
        std::ofstream(file.string() + ".part") << content;
        std::filesystem::rename(file.string() + ".part", file);
    }

    // modificationCount and the first endpoint of configuration `name`; count -1 when absent.
    std::pair<int, std::string> inForce(const std::string& name) {
        for (const auto& configuration : admin->ListConfigurations()) {
            if (configuration->GetPid() == "qz.spf.legacyservicepublisher~" + name) {
                const auto properties = configuration->GetProperties();
                const auto& endpoints = cppmicroservices::ref_any_cast<std::vector<cppmicroservices::Any>>(
                    properties.AtCompoundKey("config.endpointsToConnectTo"));
                return {cppmicroservices::any_cast<int>(properties.at("modificationCount")),
                        endpoints.empty() ? "" : cppmicroservices::any_cast<std::string>(endpoints.front())};
            }
        }
        return {-1, ""};
    }

    bool becomes(const std::string& name, std::pair<int, std::string> expected) {
        return testsupport::WaitFor([&] { return inForce(name) == expected; }, kDeadline);
    }

    std::shared_ptr<ConfigurationAdmin> admin;
    std::filesystem::path folder;
    std::shared_ptr<foundation::log::capture_sink> log = std::make_shared<foundation::log::capture_sink>("spf-host");
};

std::string configuration(const std::string& endpoint, const std::string& extra = "") {
    return R"({"config": {"endpointsToConnectTo": [")" + endpoint + R"("]}, "serviceConfigurations": [])" + extra + "}";
}

TEST_F(ConfigFolderTest, FilesAreConfigurationsAndABadEditLeavesTheLastGoodOneInForce) {
    write("early", configuration("inprocess"));
    std::ofstream(folder / "other.json") << configuration("inprocess");
    spfhost::ConfigFolder watched(folder, admin, std::chrono::milliseconds(20));
    // Applied before the constructor returns; other names are not configurations.
    EXPECT_EQ(std::make_pair(1, std::string("inprocess")), inForce("early"));
    EXPECT_EQ(1u, admin->ListConfigurations().size());

    struct Step {
        const char* what;
        std::string name;
        std::string content;  // empty: the file is removed
        std::pair<int, std::string> expected;
        const char* logged;  // waited for before the next step
    };
    const std::vector<Step> steps = {
        {"a new file", "a", configuration("ipc:///tmp/one"), {1, "ipc:///tmp/one"}, nullptr},
        {"an edit counts up", "a", configuration("ipc:///tmp/two"), {2, "ipc:///tmp/two"}, nullptr},
        {"a bad edit keeps the last good one", "a", "{\"config\": ", {2, "ipc:///tmp/two"},
         "~a.json: [json.exception.parse_error"},
        {"the mended file counts on", "a", configuration("ipc:///tmp/three"), {3, "ipc:///tmp/three"}, nullptr},
        {"a count of its own is kept", "a", configuration("ipc:///tmp/four", R"(, "modificationCount": 9)"),
         {9, "ipc:///tmp/four"}, nullptr},
        {"and counted on from", "a", configuration("ipc:///tmp/five"), {10, "ipc:///tmp/five"}, nullptr},
        {"a removed file removes it", "a", "", {-1, ""}, nullptr},
        {"a file that is no object", "early", "[]", {1, "inprocess"}, "~early.json: a configuration must be a JSON object"},
        {"removed while bad, it is removed too", "early", "", {-1, ""}, nullptr},
    };
    for (const auto& step : steps) {
        if (step.content.empty()) {
            std::filesystem::remove(folder / ("qz.spf.legacyservicepublisher~" + step.name + ".json"));
        } else {
            write(step.name, step.content);
        }
        if (step.logged) {
            const std::string text = step.logged;
            EXPECT_TRUE(log->waitFor([&](const auto& record) { return record.text.find(text) != std::string::npos; },
                                     std::chrono::steady_clock::now() + kDeadline))
                << step.what;
        }
        EXPECT_TRUE(becomes(step.name, step.expected)) << step.what;
    }
    EXPECT_EQ(2u, log->count([](const auto& record) { return record.severity == foundation::log::severity::error; }))
        << "each bad file is told of once";
}

}  // namespace
