// Reading and checking bundle manifests through InstallBundles: the JSON to
// header conversion, and every way a file can fail to be a bundle.

#include "TestBundles.h"
#include "support/FrameworkFixture.h"

#include "cppmicroservices/Constants.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

using namespace cppmicroservices;

namespace
{
    std::string
    ReadFile(std::string const& path)
    {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }

    void
    WriteFile(std::string const& path, std::string const& bytes)
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << bytes;
    }

    // Bytes that look like a bundle library holding manifest.
    std::string
    WithTrailer(std::string const& manifest, std::string const& body = "\x7f" "ELF not really")
    {
        std::string length = std::to_string(manifest.size());
        return body + manifest + std::string(16 - length.size(), '0') + length + "#US-MANIFEST-V1#";
    }

    class ManifestParserTest : public testsupport::FrameworkFixture
    {
      protected:
        void
        SetUp() override
        {
            FrameworkFixture::SetUp();
            std::filesystem::create_directories(storage);
        }

        std::string
        FileWith(std::string const& name, std::string const& bytes)
        {
            auto const path = (storage / name).string();
            WriteFile(path, bytes);
            return path;
        }
    };

    TEST_F(ManifestParserTest, JsonBecomesCaseInsensitiveHeadersOfTheRightTypes)
    {
        auto bundle = Install(testbundles::Path("TestNoActivatorBundle"));
        AnyMap const& headers = bundle.GetHeaders();
        EXPECT_EQ(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS, headers.GetType());
        EXPECT_EQ("test_no_activator", any_cast<std::string>(headers.at("BUNDLE.SYMBOLIC_NAME")));
        EXPECT_EQ("localised", any_cast<std::string>(headers.at("custom.header"))) << "a leading % is dropped";
        EXPECT_EQ(-7, any_cast<int>(headers.at("negative")));
        EXPECT_EQ(4294967296LL, any_cast<long long>(headers.at("big"))) << "too big for int, kept whole";
        EXPECT_FALSE(any_cast<bool>(headers.at("flag")));

        auto const& nested = ref_any_cast<AnyMap>(headers.at("nested"));
        EXPECT_EQ(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS, nested.GetType());
        EXPECT_EQ(0u, nested.count("dropped")) << "null members are left out";
        auto const& items = ref_any_cast<std::vector<Any>>(headers.AtCompoundKey("NESTED.level.ITEMS"));
        ASSERT_EQ(6u, items.size());
        EXPECT_EQ(1, any_cast<int>(items[0]));
        EXPECT_DOUBLE_EQ(2.5, any_cast<double>(items[1]));
        EXPECT_EQ("three", any_cast<std::string>(items[2]));
        EXPECT_TRUE(any_cast<bool>(items[3]));
        EXPECT_TRUE(items[4].Empty());
        EXPECT_EQ("v", any_cast<std::string>(ref_any_cast<AnyMap>(items[5]).at("K")));
    }

    TEST_F(ManifestParserTest, BadFilesAreRefusedWithAClearErrorAndTheFrameworkCarriesOn)
    {
        auto const greeter = ReadFile(testbundles::Path("TestGreeterBundle"));
        ASSERT_GT(greeter.size(), 100u);

        enum class Kind
        {
            Runtime,
            InvalidArgument
        };
        struct Case
        {
            std::string name;
            std::function<std::string()> makeFile; // returns the location
            Kind kind;
            std::string reason;                    // after "Failed to install bundle library at location <p>: "
        };
        std::vector<Case> const cases = {
            { "missing file", [&] { return (storage / "absent.so").string(); }, Kind::Runtime,
              "the file cannot be opened" },
            { "empty file", [&] { return FileWith("empty.so", ""); }, Kind::Runtime,
              "the file holds no embedded bundle manifest" },
            { "plain library", [&] { return testbundles::Path("TestPlainLibrary"); }, Kind::Runtime,
              "the file holds no embedded bundle manifest" },
            { "bundle cut in half", [&] { return FileWith("half.so", greeter.substr(0, greeter.size() / 2)); },
              Kind::Runtime, "the file holds no embedded bundle manifest" },
            { "bundle missing its last byte",
              [&] { return FileWith("short.so", greeter.substr(0, greeter.size() - 1)); }, Kind::Runtime,
              "the file holds no embedded bundle manifest" },
            { "length not a number", [&] { return FileWith("digits.so", "body00000000000x12#US-MANIFEST-V1#"); },
              Kind::Runtime, "the embedded manifest trailer is corrupt" },
            { "length past the start", [&] { return FileWith("long.so", "{}0000000000000100#US-MANIFEST-V1#"); },
              Kind::Runtime, "the embedded manifest is longer than the file" },
            { "length absurd", [&] { return FileWith("huge.so", "{}9999999999999999#US-MANIFEST-V1#"); },
              Kind::Runtime, "the embedded manifest is larger than 4 MiB" },
            { "not JSON", [&] { return FileWith("json.so", WithTrailer("{\"bundle.symbolic_name\": ")); },
              Kind::Runtime, "the manifest is not valid JSON (error at byte 26)" },
            { "JSON array", [&] { return FileWith("array.so", WithTrailer("[1, 2]")); }, Kind::Runtime,
              "the manifest is not a JSON object" },
            { "too deep", [&] { return FileWith("deep.so", WithTrailer(std::string(200, '[') + std::string(200, ']'))); },
              Kind::Runtime, "the manifest nests deeper than 64 levels" },
            { "case variants",
              [&] { return FileWith("case.so", WithTrailer(R"({"bundle.symbolic_name": "x", "A": 1, "a": 2})")); },
              Kind::Runtime, "the manifest has keys that differ only in case: 'a'" },
            { "no symbolic name", [&] { return FileWith("nobsn.so", WithTrailer(R"({"bundle.name": "x"})")); },
              Kind::InvalidArgument, "the manifest has no bundle.symbolic_name" },
            { "null symbolic name", [&] { return FileWith("nullbsn.so", WithTrailer(R"({"bundle.symbolic_name": null})")); },
              Kind::InvalidArgument, "the manifest has no bundle.symbolic_name" },
            { "numeric symbolic name",
              [&] { return FileWith("numbsn.so", WithTrailer(R"({"bundle.symbolic_name": 12})")); },
              Kind::InvalidArgument, "bundle.symbolic_name is not a string" },
            { "empty symbolic name",
              [&] { return FileWith("emptybsn.so", WithTrailer(R"({"bundle.symbolic_name": ""})")); },
              Kind::InvalidArgument, "bundle.symbolic_name '' is not a valid C identifier" },
            { "dashed symbolic name",
              [&] { return FileWith("dashbsn.so", WithTrailer(R"({"bundle.symbolic_name": "my-bundle"})")); },
              Kind::InvalidArgument, "bundle.symbolic_name 'my-bundle' is not a valid C identifier" },
            { "bad version",
              [&]
              {
                  return FileWith("version.so",
                                  WithTrailer(R"({"bundle.symbolic_name": "v", "bundle.version": "1.x"})"));
              },
              Kind::InvalidArgument, "bundle.version '1.x' is not a valid version" },
            { "numeric version",
              [&]
              { return FileWith("numversion.so", WithTrailer(R"({"bundle.symbolic_name": "v", "bundle.version": 1})")); },
              Kind::InvalidArgument, "bundle.version is not a string" },
            { "taken symbolic name",
              [&] { return FileWith("dup.so", WithTrailer(R"({"bundle.symbolic_name": "test_greeter"})")); },
              Kind::InvalidArgument,
              "a bundle with symbolic name 'test_greeter' is already installed from "
                  + testbundles::Path("TestGreeterBundle") },
        };

        Install(testbundles::Path("TestGreeterBundle"));
        auto const bundlesBefore = context.GetBundles().size();
        for (auto const& c : cases)
        {
            std::string const location = c.makeFile();
            std::string const expected = "Failed to install bundle library at location " + location + ": " + c.reason;
            try
            {
                context.InstallBundles(location);
                ADD_FAILURE() << c.name << ": no exception";
            }
            catch (std::invalid_argument const& e)
            {
                EXPECT_EQ(Kind::InvalidArgument, c.kind) << c.name;
                EXPECT_EQ(expected, e.what()) << c.name;
            }
            catch (std::runtime_error const& e)
            {
                EXPECT_EQ(Kind::Runtime, c.kind) << c.name;
                EXPECT_EQ(expected, e.what()) << c.name;
            }
        }
        EXPECT_EQ(bundlesBefore, context.GetBundles().size()) << "nothing was half-installed";
        EXPECT_TRUE(context);
    }

    TEST_F(ManifestParserTest, ASyntheticFileWithAValidManifestInstalls)
    {
        auto const location = FileWith("ok.so", WithTrailer(R"({"bundle.symbolic_name": "synthetic",
                                                                 "bundle.version": "2.0"})"));
        auto bundle = Install(location);
        EXPECT_EQ("synthetic", bundle.GetSymbolicName());
        EXPECT_EQ(BundleVersion(2, 0, 0), bundle.GetVersion());
        bundle.Start(); // no activator: nothing is loaded, so the fake body is harmless
        EXPECT_EQ(Bundle::STATE_ACTIVE, bundle.GetState());
    }
} // namespace
