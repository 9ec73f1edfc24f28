#include "agent/spf/core/GenericPayload.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using agent::spf::core::GenericPayload;

namespace {

struct Shape {
    virtual ~Shape() = default;
    virtual int corners() const = 0;
};
struct Square : Shape {
    int corners() const override { return 4; }
};

template <class F>
std::string failureOf(F&& f) {
    try {
        f();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "no failure";
}

}  // namespace

TEST(GenericPayloadTest, ValuesKeepTheirTypesAndOrder) {
    GenericPayload p = GenericPayload::make(std::int32_t{7}, "text", std::vector<double>{1.0}, true);
    ASSERT_EQ(p.size(), 4u);
    EXPECT_EQ(p.typeAt(0), std::type_index(typeid(std::int32_t)));
    EXPECT_EQ(p.typeAt(1), std::type_index(typeid(std::string)));  // literals are stored as strings
    EXPECT_EQ(p.get<std::string>(1), "text");
    p.get<std::vector<double>>(2).push_back(2.0);
    EXPECT_EQ(p.get<std::vector<double>>(2).size(), 2u);
    EXPECT_TRUE(p.holds<bool>(3));
    EXPECT_FALSE(p.holds<int64_t>(0));
}

TEST(GenericPayloadTest, AccessorFailuresCarryTheirTexts) {
    GenericPayload p = GenericPayload::make(std::int32_t{7});
    p.pushEmpty();
    EXPECT_THROW(p.get<std::int32_t>(2), std::logic_error);
    EXPECT_EQ(failureOf([&] { p.get<std::int32_t>(2); }), "Invalid GenericPayload index");
    EXPECT_EQ(failureOf([&] { p.typeAt(5); }), "Invalid GenericPayload index");
    EXPECT_EQ(failureOf([&] { p.get<std::int32_t>(1); }), "GenericPayload empty at index 1");
    EXPECT_EQ(failureOf([&] { p.typeAt(1); }), "GenericPayload empty at index 1");
    EXPECT_EQ(failureOf([&] { p.get<std::int64_t>(0); }),
              "GenericPayload holds another type at index 0: int requested as long");
    EXPECT_EQ(failureOf([&] { p.applyFilter({true}, [](std::size_t, GenericPayload&) {}); }),
              "Incorrect shouldApplyFilter argument - size doesn't match number of elements");
    // An index failure is a logic error, the others are runtime errors.
    EXPECT_THROW(p.get<std::int64_t>(0), std::runtime_error);
    EXPECT_THROW(p.isEmptyAt(2), std::logic_error);
}

TEST(GenericPayloadTest, PolymorphicValuesAreSharedAndNeverMovedOut) {
    GenericPayload p;
    p.pushPolymorphic<Shape>(std::make_shared<Square>());
    EXPECT_TRUE(p.isPolymorphicAt(0));
    EXPECT_EQ(p.typeAt(0), std::type_index(typeid(Shape)));
    EXPECT_EQ(p.get<Shape>(0).corners(), 4);
    GenericPayload copy = p;
    EXPECT_EQ(copy.getPolymorphic<Shape>(0), p.getPolymorphic<Shape>(0));
    // The slot knows only the base: the derived type is not what it holds.
    EXPECT_THROW(p.get<Square>(0), std::runtime_error);
    GenericPayload byValue = GenericPayload::make(std::int32_t{1});
    EXPECT_THROW(byValue.getPolymorphic<std::int32_t>(0), std::runtime_error);
}

TEST(GenericPayloadTest, CopiesAreDeepAndMovesAndExtractsLeaveEmptySlots) {
    GenericPayload original = GenericPayload::make(std::string("a"), std::int32_t{2});
    GenericPayload copy = original;
    copy.get<std::string>(0) = "changed";
    EXPECT_EQ(original.get<std::string>(0), "a");

    GenericPayload single = original.extract(0);
    EXPECT_TRUE(original.isEmptyAt(0));
    EXPECT_EQ(single.get<std::string>(0), "a");
    EXPECT_EQ(original.take<std::int32_t>(1), 2);
    EXPECT_TRUE(original.isEmptyAt(1));

    GenericPayload joined;
    joined.append(std::move(single));
    joined.append(GenericPayload::make(std::int64_t{3}));
    ASSERT_EQ(joined.size(), 2u);
    EXPECT_EQ(joined.get<std::int64_t>(1), 3);

    joined.set(0, std::int32_t{9});
    EXPECT_EQ(joined.get<std::int32_t>(0), 9);
    joined.reset(0);
    EXPECT_TRUE(joined.isEmptyAt(0));
}

TEST(GenericPayloadTest, AValueThatCannotBeCopiedMovesButRefusesACopy) {
    GenericPayload p;
    p.push_back(std::make_unique<int>(5));
    GenericPayload moved = std::move(p);
    EXPECT_EQ(*moved.get<std::unique_ptr<int>>(0), 5);
    EXPECT_EQ(failureOf([&] { GenericPayload copy = moved; }), "GenericPayload value cannot be copied at index 0");
}

TEST(GenericPayloadTest, TheFilterReachesOnlyTheMarkedSlots) {
    GenericPayload p = GenericPayload::make(std::int32_t{1}, std::string("x"), std::int32_t{3});
    std::vector<bool> mask;
    for (std::size_t i = 0; i < p.size(); ++i) {
        mask.push_back(p.holds<std::int32_t>(i));
    }
    std::vector<std::size_t> visited;
    p.applyFilter(mask, [&visited](std::size_t index, GenericPayload& payload) {
        visited.push_back(index);
        payload.set(index, std::string("replaced"));
    });
    EXPECT_EQ(visited, (std::vector<std::size_t>{0, 2}));
    EXPECT_EQ(p.get<std::string>(2), "replaced");
    EXPECT_EQ(p.get<std::string>(1), "x");
}
