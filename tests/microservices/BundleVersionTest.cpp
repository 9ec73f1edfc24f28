#include "cppmicroservices/BundleVersion.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <stdexcept>

using cppmicroservices::BundleVersion;

namespace
{
    TEST(BundleVersionTest, ParsesOneToFourPartsAndPrintsThemNormalised)
    {
        struct Case
        {
            std::string text;
            std::string printed;
        };
        for (auto const& c : std::vector<Case>{ { "1", "1.0.0" },
                                                { "1.2", "1.2.0" },
                                                { " 1.2.3 ", "1.2.3" },
                                                { "1.2.3.rc-1_b", "1.2.3.rc-1_b" },
                                                { "", "0.0.0" } })
        {
            EXPECT_EQ(c.printed, BundleVersion::ParseVersion(c.text).ToString()) << c.text;
        }
    }

    TEST(BundleVersionTest, RejectsMalformedVersionsWithTheirReason)
    {
        struct Case
        {
            std::string text;
            std::string message;
        };
        for (auto const& c : std::vector<Case>{
                 { "1.x", "Invalid version \"1.x\": bad number \"x\"" },
                 { "1..2", "Invalid version \"1..2\": bad number \"\"" },
                 { "-1", "Invalid version \"-1\": bad number \"-1\"" },
                 { "1.2.3.", "Invalid version \"1.2.3.\": empty qualifier" },
                 { "1.2.3.a.b", "Invalid version \"1.2.3.a.b\": too many parts" },
                 { "1.2.3.a b", "Invalid version \"1.2.3.a b\": bad qualifier \"a b\"" },
                 { "99999999999", "Invalid version \"99999999999\": bad number \"99999999999\"" },
             })
        {
            EXPECT_EQ(c.message, testsupport::ThrownText<std::invalid_argument>([&] { BundleVersion::ParseVersion(c.text); }))
                << c.text;
        }
    }

    TEST(BundleVersionTest, ComparesNumbersNumericallyThenQualifiers)
    {
        EXPECT_LT(BundleVersion(1, 2, 3), BundleVersion(1, 10, 0));
        EXPECT_LT(BundleVersion(1, 2, 3), BundleVersion(1, 2, 3, "a"));
        EXPECT_LT(BundleVersion(1, 2, 3, "a"), BundleVersion(1, 2, 3, "b"));
        EXPECT_EQ(0, BundleVersion("2.0").Compare(BundleVersion(2, 0, 0)));
        EXPECT_THROW(BundleVersion::UndefinedVersion().Compare(BundleVersion(1, 0, 0)), std::logic_error);
        EXPECT_EQ("undefined", BundleVersion::UndefinedVersion().ToString());
    }
} // namespace
