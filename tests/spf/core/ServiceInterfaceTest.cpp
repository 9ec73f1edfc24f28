#include "support/Thrown.h"
#include "agent/spf/core/ServiceInterface.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

using agent::spf::core::APIVersion;
using agent::spf::core::GenericPayload;
using agent::spf::core::ServiceInterface;

// Typed calls of methods made from callables are covered end to end; what is left is what a
// caller gets wrong, and that a clone is a service of its own.
TEST(ServiceInterfaceTest, BadCallsAreRefusedWithTheirTextsAndACloneIsIndependent) {
    ServiceInterface calculator("test::Calculator", APIVersion(2, 5), {{"spf.wireFormat", "application/x"}});
    calculator.addMethod("add", [](std::int32_t a, std::int32_t b) { return a + b; });
    calculator.addMethod("fail", [](std::int32_t) -> std::int32_t { throw std::domain_error("no such luck"); });
    const std::vector<std::pair<std::function<void()>, std::string>> rows = {
        {[&] { calculator.method("add").invoke(GenericPayload::make(std::int32_t{1})); },
         "Wrong number of arguments, expected 2"},
        {[&] { calculator.method("add").invoke(GenericPayload(2)); }, "GenericPayload empty at index 0"},
        {[&] { calculator.method("add").invoke(GenericPayload::make(std::int32_t{1}, std::int64_t{2})); },
         "GenericPayload holds another type at index 1: long requested as int"},
        {[&] { calculator.method("divide"); }, "Unknown method divide"},
        {[&] { calculator.method("fail").invoke(GenericPayload::make(std::int32_t{1})); }, "no such luck"},
        {[&] { calculator.addMethod("add", [] {}); }, "Method already defined add"},
    };
    for (const auto& [request, text] : rows) {
        EXPECT_EQ(text, testsupport::ThrownText<std::exception>(request));
    }
    ServiceInterface copy = calculator.clone();
    copy.setMetadata("spf.wireFormat", "changed");
    copy.addMethod("negate", [](std::int32_t a) { return -a; });
    EXPECT_EQ("application/x", calculator.getMetadata().at("spf.wireFormat"));
    EXPECT_FALSE(calculator.hasMethod("negate"));
    EXPECT_EQ(3, copy.method("add").invoke(GenericPayload::make(std::int32_t{1}, std::int32_t{2})).get<std::int32_t>(0));
}
