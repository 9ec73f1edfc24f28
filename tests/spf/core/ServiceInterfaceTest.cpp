#include "agent/spf/core/ServiceInterface.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

using agent::spf::core::APIVersion;
using agent::spf::core::GenericPayload;
using agent::spf::core::MethodImplementation;
using agent::spf::core::ServiceInterface;

namespace {

std::string greet(const std::string& name) { return "hello " + name; }

ServiceInterface makeCalculator() {
    ServiceInterface calculator("test::Calculator", APIVersion(2, 5), {{"spf.wireFormat", "application/x"}});
    calculator.addMethod("add", [](std::int32_t a, std::int32_t b) { return a + b; });
    calculator.addMethod("greet", &greet);
    calculator.addMethod("sum", [](std::vector<double> values) {
        double total = 0;
        for (double v : values) total += v;
        return total;
    });
    calculator.addMethod("reset", []() {});
    return calculator;
}

}  // namespace

TEST(ServiceInterfaceTest, MethodsFromCallablesKeepTheirTypesAndRun) {
    const ServiceInterface calculator = makeCalculator();
    EXPECT_EQ(calculator.methodNames(), (std::vector<std::string>{"add", "greet", "reset", "sum"}));

    const MethodImplementation& add = calculator.method("add");
    EXPECT_EQ(add.argumentTypes(),
              (std::vector<std::type_index>{typeid(std::int32_t), typeid(std::int32_t)}));
    EXPECT_EQ(add.returnType(), std::type_index(typeid(std::int32_t)));
    GenericPayload sum = add.invoke(GenericPayload::make(std::int32_t{40}, std::int32_t{2}));
    ASSERT_EQ(sum.size(), 1u);
    EXPECT_EQ(sum.get<std::int32_t>(0), 42);

    const MethodImplementation& greetMethod = calculator.method("greet");
    EXPECT_EQ(greetMethod.argumentTypes(), (std::vector<std::type_index>{typeid(std::string)}));
    EXPECT_EQ(greetMethod.invoke(GenericPayload::make("you")).get<std::string>(0), "hello you");

    EXPECT_EQ(calculator.method("sum").invoke(GenericPayload::make(std::vector<double>{1.5, 2.5})).get<double>(0),
              4.0);

    const MethodImplementation& reset = calculator.method("reset");
    EXPECT_EQ(reset.returnType(), std::type_index(typeid(void)));
    EXPECT_TRUE(reset.argumentTypes().empty());
    EXPECT_EQ(reset.invoke(GenericPayload()).size(), 0u);
}

TEST(ServiceInterfaceTest, ArgumentsOfTheWrongCountOrTypeAreRefused) {
    const ServiceInterface calculator = makeCalculator();
    const MethodImplementation& add = calculator.method("add");
    try {
        add.invoke(GenericPayload::make(std::int32_t{1}));
        FAIL() << "expected a failure";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Wrong number of arguments, expected 2");
    }
    EXPECT_THROW(add.invoke(GenericPayload::make(std::int32_t{1}, std::int64_t{2})), std::runtime_error);
    try {
        add.invoke(GenericPayload(2));
        FAIL() << "expected a failure";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "GenericPayload empty at index 0");
    }
    try {
        calculator.method("divide");
        FAIL() << "expected a failure";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Unknown method divide");
    }
}

TEST(ServiceInterfaceTest, ExceptionsOfTheImplementationReachTheCaller) {
    ServiceInterface failing("test::Failing", APIVersion(1));
    failing.addMethod("fail", [](std::int32_t) -> std::int32_t { throw std::domain_error("no such luck"); });
    EXPECT_THROW(failing.method("fail").invoke(GenericPayload::make(std::int32_t{1})), std::domain_error);
}

TEST(ServiceInterfaceTest, CloneIsIndependentOfTheOriginal) {
    ServiceInterface original = makeCalculator();
    ServiceInterface copy = original.clone();
    copy.setMetadata("spf.wireFormat", "changed");
    copy.addMethod("negate", [](std::int32_t a) { return -a; });
    EXPECT_EQ(original.getMetadata().at("spf.wireFormat"), "application/x");
    EXPECT_FALSE(original.hasMethod("negate"));
    EXPECT_EQ(copy.getInterfaceName(), "test::Calculator");
    EXPECT_EQ(copy.getVersion(), APIVersion(2, 5, 0, 0));
    EXPECT_EQ(copy.method("add").invoke(GenericPayload::make(std::int32_t{1}, std::int32_t{2})).get<std::int32_t>(0),
              3);
    EXPECT_THROW(original.addMethod("add", [] {}), std::invalid_argument);
}
