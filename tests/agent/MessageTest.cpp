#include "agent/core/transport/Address.h"
#include "agent/core/transport/Message.h"
#include "agent/core/transport/MessageView.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <istream>
#include <streambuf>
#include <string>

using agent::core::transport::Address;
using agent::core::transport::Message;
using agent::core::transport::MessageView;

namespace {

// Reads a view in place, as a deserialiser does.
class ViewStreambuf : public std::streambuf {
public:
    explicit ViewStreambuf(const MessageView& view) {
        auto* begin = const_cast<char*>(reinterpret_cast<const char*>(view.data()));
        setg(begin, begin, begin + view.size());
    }
};

}  // namespace

TEST(MessageTest, AppendOfBytesTextAndMessagesConcatenates) {
    Message message;
    message.append("ab", 2);
    message.append(std::string_view("cd"));
    Message tail(std::string_view("ef"));
    message.append(tail);
    message.append(message.makeView(0, 2));  // a view of itself
    EXPECT_EQ(message.asStringView(), "abcdefab");
    message.append(message);
    EXPECT_EQ(message.asStringView(), "abcdefababcdefab");
    EXPECT_EQ(message.size(), 16u);
}

TEST(MessageTest, SizePrefixWrittenThroughBeginAfterTheDataIsAppended) {
    Message message;
    message.append(std::string_view("head"));
    const std::size_t partStart = message.size();
    const std::array<std::uint8_t, 8> reserved{};
    message.append(reserved.data(), reserved.size());
    message.append(std::string_view("payload"));
    std::uint64_t partSize = message.size() - partStart - 8;
    for (int i = 7; i >= 0; --i) {
        *(message.begin() + static_cast<std::ptrdiff_t>(partStart + i)) = static_cast<std::uint8_t>(partSize);
        partSize >>= 8;
    }
    const std::array<std::uint8_t, 8> expected{0, 0, 0, 0, 0, 0, 0, 7};
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), message.begin() + 4));
    EXPECT_EQ(message.makeView(12, 0).asStringView(), "payload");
}

TEST(MessageTest, ViewsSelectRangesAndSizeZeroMeansToTheEnd) {
    const Message message(std::string_view("0123456789"));
    EXPECT_EQ(message.makeView(0, 0).asStringView(), "0123456789");
    EXPECT_EQ(message.makeView(3, 4).asStringView(), "3456");
    EXPECT_EQ(message.makeView(7, 0).asStringView(), "789");
    const auto inner = message.makeView(2, 6).makeView(1, 3);
    EXPECT_EQ(inner.asStringView(), "345");
    EXPECT_EQ(inner.offset(), 3u);
    EXPECT_EQ(inner.data(), message.data() + 3);  // no copy
    EXPECT_TRUE(message.makeView(10, 0).empty());
}

TEST(MessageTest, ViewsOutsideTheirMessageAreRefused) {
    const Message message(std::string_view("0123456789"));
    const auto view = message.makeView(2, 4);
    struct Case {
        std::function<void()> make;
    };
    for (const auto& make : std::vector<std::function<void()>>{
             [&] { message.makeView(11, 0); },
             [&] { message.makeView(5, 6); },
             [&] { message.makeView(0, 11); },
             [&] { view.makeView(5, 0); },
             [&] { view.makeView(2, 3); },
         }) {
        try {
            make();
            ADD_FAILURE() << "an out-of-range view was made";
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "MessageView outside of its message");
        }
    }
}

TEST(MessageTest, IteratorsOfDifferentMessagesRefuseSubtraction) {
    Message a(std::string_view("abc"));
    Message b(std::string_view("abc"));
    EXPECT_EQ(a.end() - a.begin(), 3);
    // Views of one message share its iterators' identity.
    EXPECT_EQ(a.makeView(1, 0).begin() - a.cbegin(), 1);
    try {
        (void)(a.begin() - b.begin());
        FAIL() << "subtraction succeeded";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "Attempting to take difference between incompatible MessageIterators");
    }
    EXPECT_THROW((void)(a.makeView(0, 0).end() - b.makeView(0, 0).begin()), std::invalid_argument);
}

TEST(MessageTest, ViewBacksAStreambufWithoutCopying) {
    const Message message(std::string_view("12 34 rest"));
    ViewStreambuf buffer(message.makeView(0, 5));
    std::istream in(&buffer);
    int first = 0;
    int second = 0;
    in >> first >> second;
    EXPECT_EQ(first, 12);
    EXPECT_EQ(second, 34);
    EXPECT_TRUE(in.eof());
}

TEST(AddressTest, NilIsInvalidAndWellKnownAddressesAreStableAndDistinct) {
    EXPECT_FALSE(Address().isValid());
    const auto directory = agent::core::transport::getWellKnowAddressFor(1);
    EXPECT_TRUE(directory.isValid());
    EXPECT_EQ(directory, agent::core::transport::getWellKnowAddressFor(
                             agent::core::transport::WellKnownAddressName::Directory));
    EXPECT_NE(directory, agent::core::transport::getWellKnowAddressFor(2));
    EXPECT_EQ(directory.getUUID().version(), boost::uuids::uuid::version_unknown);
}
