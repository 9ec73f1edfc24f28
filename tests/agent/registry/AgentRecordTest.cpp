#include "support/Thrown.h"
#include "control/AgentRecord.h"

#include <gtest/gtest.h>

#include <stdexcept>

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

TEST(AgentRecordTest, MalformedRecordsAreRefusedWithTheirReason) {
    struct Row {
        const char* text;
        const char* error;
    };
    const Row rows[] = {
        {"", "Agent record is not valid JSON"},
        {R"({"formatVersion":1,"name":"n")", "Agent record is not valid JSON"},
        {"\xff\xfe", "Agent record is not valid JSON"},
        {"[1,2]", "Agent record is not a JSON object"},
        {"\"text\"", "Agent record is not a JSON object"},
        {R"({"name":"n"})", "Agent record has no format version"},
        {R"({"formatVersion":2,"name":"n"})", "Agent record format version is not supported"},
        {R"({"formatVersion":"1"})", "Agent record format version is not supported"},
        {R"({"formatVersion":1.5})", "Agent record format version is not supported"},
        {R"({"formatVersion":1,"exchange":"e","processID":7,"mode":"korvexdrive","registered":1})",
         "Agent record needs a name"},
        {R"({"formatVersion":1,"name":"","exchange":"e","processID":7,"mode":"korvexdrive","registered":1})",
         "Agent record needs a name"},
        {R"({"formatVersion":1,"name":5,"exchange":"e","processID":7,"mode":"korvexdrive","registered":1})",
         "Agent record needs a name"},
        {R"({"formatVersion":1,"name":"n","exchange":null,"processID":7,"mode":"korvexdrive","registered":1})",
         "Agent record needs an exchange"},
        {R"({"formatVersion":1,"name":"n","exchange":"e","mode":"korvexdrive","registered":1})",
         "Agent record needs a positive process ID"},
        {R"({"formatVersion":1,"name":"n","exchange":"e","processID":0,"mode":"korvexdrive","registered":1})",
         "Agent record needs a positive process ID"},
        {R"({"formatVersion":1,"name":"n","exchange":"e","processID":-1,"mode":"korvexdrive","registered":1})",
         "Agent record needs a positive process ID"},
        {R"({"formatVersion":1,"name":"n","exchange":"e","processID":4294967296,"mode":"korvexdrive","registered":1})",
         "Agent record needs a positive process ID"},
        {R"({"formatVersion":1,"name":"n","exchange":"e","processID":7.0,"mode":"korvexdrive","registered":1})",
         "Agent record needs a positive process ID"},
        {R"({"formatVersion":1,"name":"n","exchange":"e","processID":"7","mode":"korvexdrive","registered":1})",
         "Agent record needs a positive process ID"},
        {R"({"formatVersion":1,"name":"n","exchange":"e","processID":7,"registered":1})",
         "Agent record mode must be korvexdrive or desktopservices"},
        {R"({"formatVersion":1,"name":"n","exchange":"e","processID":7,"mode":"KorvexDrive","registered":1})",
         "Agent record mode must be korvexdrive or desktopservices"},
        {R"({"formatVersion":1,"name":"n","exchange":"e","processID":7,"mode":"korvexdrive"})",
         "Agent record needs a registration time"},
        {R"({"formatVersion":1,"name":"n","exchange":"e","processID":7,"mode":"korvexdrive","registered":-5})",
         "Agent record needs a registration time"},
        {R"({"formatVersion":1,"name":"n","exchange":"e","processID":7,"mode":"korvexdrive","registered":18446744073709551615})",
         "Agent record needs a registration time"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(testsupport::ThrownText<std::invalid_argument>([&] { AgentRecord::parse(row.text); }), row.error)
            << row.text;
    }
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
