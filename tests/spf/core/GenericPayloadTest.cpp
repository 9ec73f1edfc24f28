#include "support/Thrown.h"
#include "agent/spf/core/GenericPayload.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using agent::spf::core::GenericPayload;

namespace {

struct Shape {
    virtual ~Shape() = default;
};
struct Square : Shape {};

// get's and typeAt's failures reach users through the handlers, methods and serialisers that
// use them (CompletionHandlerTest, ServiceInterfaceTest, SerialisationCatalogueTest).
TEST(GenericPayloadTest, AccessorFailuresCarryTheirTexts) {
    GenericPayload p = GenericPayload::make(std::int32_t{7});
    p.pushPolymorphic<Shape>(std::make_shared<Square>());
    GenericPayload uncopyable;
    uncopyable.push_back(std::make_unique<int>(5));
    const std::vector<std::pair<std::function<void()>, std::string>> rows = {
        {[&] { p.applyFilter({true}, [](std::size_t, GenericPayload&) {}); },
         "Incorrect shouldApplyFilter argument - size doesn't match number of elements"},
        {[&] { GenericPayload copy = uncopyable; }, "GenericPayload value cannot be copied at index 0"},
    };
    for (const auto& [request, text] : rows) {
        EXPECT_EQ(text, testsupport::ThrownText<std::exception>(request));
    }
    // A polymorphic slot knows only its base, and a value slot is no polymorphic one.
    EXPECT_THROW(p.get<Square>(1), std::runtime_error);
    EXPECT_THROW(p.getPolymorphic<std::int32_t>(0), std::runtime_error);
    EXPECT_EQ(p.getPolymorphic<Shape>(1), GenericPayload(p).getPolymorphic<Shape>(1)) << "shared, not copied";
}

TEST(GenericPayloadTest, CopiesAreDeepAndExtractsTakesAndFiltersLeaveTheRestAlone) {
    GenericPayload original = GenericPayload::make(std::string("a"), std::int32_t{2}, std::int32_t{3});
    GenericPayload copy = original;
    copy.get<std::string>(0) = "changed";
    EXPECT_EQ("a", original.get<std::string>(0));
    EXPECT_EQ("a", original.extract(0).get<std::string>(0));
    EXPECT_TRUE(original.isEmptyAt(0));
    EXPECT_EQ(2, original.take<std::int32_t>(1));
    EXPECT_TRUE(original.isEmptyAt(1));

    std::vector<std::size_t> visited;
    copy.applyFilter({false, true, true}, [&visited](std::size_t index, GenericPayload& payload) {
        visited.push_back(index);
        payload.set(index, std::string("replaced"));
    });
    EXPECT_EQ((std::vector<std::size_t>{1, 2}), visited);
    EXPECT_EQ("changed", copy.get<std::string>(0));
    EXPECT_EQ("replaced", copy.get<std::string>(2));
}

}  // namespace
