#include "support/Thrown.h"
#include "control/AgentRecord.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace agent::control {
namespace {

// A record reads back unchanged, and fields a later writer may add are ignored.
TEST(AgentRecordTest, SerialisedRecordReadsBackUnchangedAndUnknownFieldsAreIgnored) {
    const AgentRecord written{AgentInfo("exchange \"one\" ü", "ipc:///tmp/x.sock", 4242, AgentMode::DesktopServices),
                              1700000000123456789};
    const auto read = AgentRecord::parse(written.serialise());
    EXPECT_EQ(read.info, written.info);
    EXPECT_EQ(read.registered, written.registered);
    const auto later = AgentRecord::parse(
        R"({"formatVersion":1,"name":"n","exchange":"e","processID":7,"mode":"korvexdrive","registered":3,"extra":[1]})");
    EXPECT_EQ(later.info, AgentInfo("n", "e", 7, AgentMode::KorvexDrive));
    EXPECT_EQ(later.registered, 3);
}

// A valid version-1 record with `field` set to `value` (JSON text), or without it when `value` is empty.
std::string recordWith(const std::string& field, const std::string& value) {
    const std::pair<std::string, std::string> fields[] = {{"name", R"("n")"}, {"exchange", R"("e")"},
                                                          {"processID", "7"},  {"mode", R"("korvexdrive")"},
                                                          {"registered", "1"}};
    std::string text = R"({"formatVersion":1)";
    for (const auto& [name, valid] : fields) {
        const auto& written = name == field ? value : valid;
        text += written.empty() ? "" : ",\"" + name + "\":" + written;
    }
    return text + "}";
}

TEST(AgentRecordTest, MalformedRecordsAreRefusedWithTheirReason) {
    const std::pair<std::string, std::string> rows[] = {
        {"", "Agent record is not valid JSON"},
        {R"({"formatVersion":1,"name":"n")", "Agent record is not valid JSON"},
        {"\xff\xfe", "Agent record is not valid JSON"},
        {"[1,2]", "Agent record is not a JSON object"},
        {"\"text\"", "Agent record is not a JSON object"},
        {R"({"name":"n"})", "Agent record has no format version"},
        {R"({"formatVersion":2,"name":"n"})", "Agent record format version is not supported"},
        {R"({"formatVersion":"1"})", "Agent record format version is not supported"},
        {R"({"formatVersion":1.5})", "Agent record format version is not supported"},
        {recordWith("name", ""), "Agent record needs a name"},
        {recordWith("name", R"("")"), "Agent record needs a name"},
        {recordWith("name", "5"), "Agent record needs a name"},
        {recordWith("exchange", "null"), "Agent record needs an exchange"},
        {recordWith("processID", ""), "Agent record needs a positive process ID"},
        {recordWith("processID", "0"), "Agent record needs a positive process ID"},
        {recordWith("processID", "-1"), "Agent record needs a positive process ID"},
        {recordWith("processID", "4294967296"), "Agent record needs a positive process ID"},
        {recordWith("processID", "7.0"), "Agent record needs a positive process ID"},
        {recordWith("processID", R"("7")"), "Agent record needs a positive process ID"},
        {recordWith("mode", ""), "Agent record mode must be korvexdrive or desktopservices"},
        {recordWith("mode", R"("KorvexDrive")"), "Agent record mode must be korvexdrive or desktopservices"},
        {recordWith("registered", ""), "Agent record needs a registration time"},
        {recordWith("registered", "-5"), "Agent record needs a registration time"},
        {recordWith("registered", "18446744073709551615"), "Agent record needs a registration time"},
    };
    for (const auto& [text, error] : rows) {
        EXPECT_EQ(testsupport::ThrownText<std::invalid_argument>([&] { AgentRecord::parse(text); }), error) << text;
    }
    EXPECT_EQ(AgentRecord::parse(recordWith("", "")).info, AgentInfo("n", "e", 7, AgentMode::KorvexDrive));
}

TEST(AgentRecordTest, OnlyAgentJsonNamesAreRegistryFiles) {
    EXPECT_TRUE(AgentRecord::isRecordFileName("agent-1-ab.json"));
    EXPECT_TRUE(AgentRecord::isRecordFileName("agent-x.json"));
    for (const char* name : {"agent-.json", "agent.json", ".agent-1.json", "agent-1.json.tmp", ".1-ab.tmp",
                             "Agent-1.json", "notes.txt", ""}) {
        EXPECT_FALSE(AgentRecord::isRecordFileName(name)) << name;
    }
}

}  // namespace
}  // namespace agent::control
