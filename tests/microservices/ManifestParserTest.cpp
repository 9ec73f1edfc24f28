// Reading and checking bundle manifests through InstallBundles: the JSON to
// header conversion, and every way a file can fail to be a bundle.

#include "TestBundles.h"
#include "support/Thrown.h"
#include "support/FrameworkFixture.h"

#include "cppmicroservices/Constants.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

using namespace cppmicroservices;
using testsupport::ThrownText;

namespace
{
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
        std::string
        FileWith(std::string const& name, std::string const& bytes)
        {
            std::filesystem::create_directories(storage);
            auto const path = (storage / name).string();
            std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
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
        EXPECT_EQ(R"([1,2.5,"three",true,null,{"k" : "v"}])", headers.AtCompoundKey("NESTED.level.ITEMS").ToJSON());
        EXPECT_EQ(1, any_cast<int>(items[0]));
        EXPECT_EQ("v", any_cast<std::string>(ref_any_cast<AnyMap>(items[5]).at("K")));
    }

    TEST_F(ManifestParserTest, BadFilesAreRefusedWithAClearErrorAndTheFrameworkCarriesOn)
    {
        std::ifstream in(testbundles::Path("TestGreeterBundle"), std::ios::binary);
        std::string const greeter{ std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>() };
        ASSERT_GT(greeter.size(), 100u);

        struct Case
        {
            std::string name;
            std::string location;
            bool invalidArgument; // else std::runtime_error
            std::string reason; // after "Failed to install bundle library at location <p>: "
        };
        int files = 0;
        auto file = [&](std::string const& bytes) { return FileWith(std::to_string(++files) + ".so", bytes); };
        auto manifest = [&](std::string const& json) { return file(WithTrailer(json)); };
        auto const runtime = false;
        auto const invalid = true;
        std::string const noManifest = "the file holds no embedded bundle manifest";
        std::vector<Case> const cases = {
            { "missing file", (storage / "absent.so").string(), runtime, "the file cannot be opened" },
            { "empty file", file(""), runtime, noManifest },
            { "plain library", testbundles::Path("TestPlainLibrary"), runtime, noManifest },
            { "bundle cut in half", file(greeter.substr(0, greeter.size() / 2)), runtime, noManifest },
            { "length not a number", file("body00000000000x12#US-MANIFEST-V1#"), runtime,
              "the embedded manifest trailer is corrupt" },
            { "length past the start", file("{}0000000000000100#US-MANIFEST-V1#"), runtime,
              "the embedded manifest is longer than the file" },
            { "length absurd", file("{}9999999999999999#US-MANIFEST-V1#"), runtime,
              "the embedded manifest is larger than 4 MiB" },
            { "not JSON", manifest("{\"bundle.symbolic_name\": "), runtime,
              "the manifest is not valid JSON (error at byte 26)" },
            { "JSON array", manifest("[1, 2]"), runtime, "the manifest is not a JSON object" },
            { "too deep", manifest(std::string(200, '[') + std::string(200, ']')), runtime,
              "the manifest nests deeper than 64 levels" },
            { "case variants", manifest(R"({"bundle.symbolic_name": "x", "A": 1, "a": 2})"), runtime,
              "the manifest has keys that differ only in case: 'a'" },
            { "no symbolic name", manifest(R"({"bundle.name": "x"})"), invalid,
              "the manifest has no bundle.symbolic_name" },
            { "numeric symbolic name", manifest(R"({"bundle.symbolic_name": 12})"), invalid,
              "bundle.symbolic_name is not a string" },
            { "empty symbolic name", manifest(R"({"bundle.symbolic_name": ""})"), invalid,
              "bundle.symbolic_name '' is not a valid C identifier" },
            { "dashed symbolic name", manifest(R"({"bundle.symbolic_name": "my-bundle"})"), invalid,
              "bundle.symbolic_name 'my-bundle' is not a valid C identifier" },
            { "bad version", manifest(R"({"bundle.symbolic_name": "v", "bundle.version": "1.x"})"), invalid,
              "bundle.version '1.x' is not a valid version" },
            { "numeric version", manifest(R"({"bundle.symbolic_name": "v", "bundle.version": 1})"), invalid,
              "bundle.version is not a string" },
            { "taken symbolic name", manifest(R"({"bundle.symbolic_name": "test_greeter"})"), invalid,
              "a bundle with symbolic name 'test_greeter' is already installed from "
                  + testbundles::Path("TestGreeterBundle") },
        };

        Install(testbundles::Path("TestGreeterBundle"));
        auto const bundlesBefore = context.GetBundles().size();
        for (auto const& c : cases)
        {
            auto const install = [&] { context.InstallBundles(c.location); };
            EXPECT_EQ("Failed to install bundle library at location " + c.location + ": " + c.reason,
                      c.invalidArgument ? ThrownText<std::invalid_argument>(install) : ThrownText<std::runtime_error>(install))
                << c.name;
        }
        EXPECT_EQ(bundlesBefore, context.GetBundles().size()) << "nothing was half-installed";
        EXPECT_TRUE(context);
    }
} // namespace
