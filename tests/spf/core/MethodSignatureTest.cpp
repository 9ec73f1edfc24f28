#include "support/Thrown.h"
#include "agent/spf/core/MethodSignature.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Sink.h"

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace agent::spf::core {

void PrintTo(const MethodSignature& signature, std::ostream* out) {
    *out << signature.toString();
}

namespace {

// Each row's text reads as the signature, whose text form is `canonical` (the text itself
// when empty), and that reads back as the same signature.
TEST(MethodSignatureTest, TextFormsReadAndWriteBack) {
    struct Row {
        std::string text;
        MethodSignature signature;
        std::string canonical;
    };
    const std::vector<Row> rows = {
        {"() -> void", {{}, "void"}, ""},
        {"(boolean, float, double, bytes, uuid, callback, stream) -> map<array<uuid>>",
         {{"boolean", "float", "double", "bytes", "uuid", "callback", "stream"}, "map<array<uuid>>"},
         ""},
        {" ( array < int > ,map<string> )->  optional<bytes> ", {{"array<int>", "map<string>"}, "optional<bytes>"},
         "(array<int>, map<string>) -> optional<bytes>"},
        {"(record: geo::Path<geo::Point, std::allocator<geo::Point> > , optional<record:a::(anonymous namespace)::B>) "
         "-> record:int (*)(int)",
         {{"record:geo::Path<geo::Point, std::allocator<geo::Point> >", "optional<record:a::(anonymous namespace)::B>"},
          "record:int (*)(int)"},
         "(record:geo::Path<geo::Point, std::allocator<geo::Point> >, optional<record:a::(anonymous namespace)::B>) "
         "-> record:int (*)(int)"},
    };
    for (const auto& row : rows) {
        const auto read = MethodSignature::parse(row.text);
        EXPECT_EQ(read, row.signature) << row.text;
        EXPECT_EQ(read.toString(), row.canonical.empty() ? row.text : row.canonical);
        EXPECT_EQ(MethodSignature::parse(read.toString()), read) << row.text;
    }
}

TEST(MethodSignatureTest, MalformedTextsAreRefusedWithWhatAndWhere) {
    std::string deep = "int";
    for (int i = 0; i < 33; ++i) deep = "array<" + deep + ">";
    deep = "(" + deep + ") -> void";
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"", "expected '(' at offset 0"},
        {"int -> int", "expected '(' at offset 0"},
        {"(int long) -> void", "expected ',' or ')' at offset 5"},
        {"(int,) -> void", "expected a type at offset 5"},
        {"(int) void", "expected '->' at offset 6"},
        {"(int) ->", "expected a type at offset 8"},
        {"(integer) -> void", "unknown type 'integer' at offset 1"},
        {"(void) -> void", "'void' is only a result at offset 1"},
        {"() -> optional<void>", "'void' is only a result at offset 15"},
        {"() -> array<int", "expected '>' at offset 15"},
        {"() -> map int", "expected '<' at offset 10"},
        {"(record) -> void", "expected ':' at offset 7"},
        {"(record: ) -> void", "record without a name at offset 9"},
        {"(record:a<b) -> void", "unbalanced brackets in a record name at offset 8"},
        {"(record:a]) -> void", "unbalanced brackets in a record name at offset 8"},
        {"() -> int int", "unexpected text after the result at offset 10"},
        {deep, "types nested more than 32 deep at offset 199"},
    };
    for (const auto& [text, what] : rows) {
        EXPECT_EQ(testsupport::ThrownText<std::invalid_argument>([&] { MethodSignature::parse(text); }),
                  "Malformed method signature '" + text + "': " + what);
    }
}

// A peer's bad entry costs only its own method, with a warning; other keys are not read.
TEST(MethodSignatureTest, ReadingMetadataSkipsAndLogsMalformedSignatures) {
    auto log = std::make_shared<foundation::log::capture_sink>("agent::spf::core");
    foundation::log::addSink(log);
    const auto signatures = readMethodSignatures({{"spf.wireFormat", "application/octet-stream"},
                                                  {methodSignatureKey("add"), "(int, int) -> int"},
                                                  {methodSignatureKey("broken"), "(int"},
                                                  {methodSignatureKey(""), "() -> void"},
                                                  {methodSignatureKey("reset"), "() -> void"},
                                                  {"spf.signaturex", "() -> void"}});
    foundation::log::removeSink(log);
    EXPECT_EQ(signatures, (std::map<std::string, MethodSignature>{{"add", {{"int", "int"}, "int"}},
                                                                  {"reset", {{}, "void"}}}));
    EXPECT_EQ(log->texts(),
              (std::vector<std::string>{
                  "Left out the signature of method '': Method signature without a method name",
                  "Left out the signature of method 'broken': Malformed method signature '(int': expected ',' or ')' "
                  "at offset 4"}));
}

}  // namespace
}  // namespace agent::spf::core
