#include "agent/core/transport/Message.h"
#include "agent/core/transport/MessageView.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

using agent::core::transport::Message;

TEST(MessageTest, AppendOfBytesTextAndMessagesConcatenatesEvenFromItself) {
    Message message;
    message.append("ab", 2);
    message.append(std::string_view("cd"));
    message.append(Message(std::string_view("ef")));
    message.append(message.makeView(0, 2));  // a view of itself
    EXPECT_EQ(message.asStringView(), "abcdefab");
    message.append(message);
    EXPECT_EQ(message.asStringView(), "abcdefababcdefab");
}

// Views select ranges without copying (size 0 means to the end) and refuse to reach
// outside their message; iterators of different messages refuse to be subtracted.
TEST(MessageTest, ViewsAndIteratorsStayInsideTheirMessage) {
    const Message message(std::string_view("0123456789"));
    const Message other(std::string_view("0123456789"));
    const auto view = message.makeView(2, 6);
    const auto range = [&](std::size_t offset, std::size_t size) {
        return std::string(message.makeView(offset, size).asStringView());
    };
    const std::pair<std::function<std::string()>, std::string> rows[] = {
        {[&] { return range(0, 0); }, "0123456789"},
        {[&] { return range(3, 4); }, "3456"},
        {[&] { return range(7, 0); }, "789"},
        {[&] { return range(10, 0); }, ""},
        {[&] { return std::string(view.makeView(1, 3).asStringView()); }, "345"},
        {[&] { return std::to_string(view.makeView(1, 3).data() - message.data()); }, "3"},
        {[&] { return std::to_string(view.makeView(1, 3).offset()); }, "3"},
        {[&] { return std::to_string(view.makeView(1, 0).begin() - message.cbegin()); }, "3"},
        {[&] { return range(11, 0); }, "MessageView outside of its message"},
        {[&] { return range(5, 6); }, "MessageView outside of its message"},
        {[&] { return range(0, 11); }, "MessageView outside of its message"},
        {[&] { return std::string(view.makeView(7, 0).asStringView()); }, "MessageView outside of its message"},
        {[&] { return std::string(view.makeView(4, 3).asStringView()); }, "MessageView outside of its message"},
        {[&] { return std::to_string(message.cbegin() - other.cbegin()); },
         "Attempting to take difference between incompatible MessageIterators"},
        {[&] { return std::to_string(view.end() - other.makeView(0, 0).begin()); },
         "Attempting to take difference between incompatible MessageIterators"},
    };
    for (const auto& [make, expected] : rows) {
        try {
            EXPECT_EQ(make(), expected);
        } catch (const std::exception& e) {
            EXPECT_EQ(e.what(), expected);
        }
    }
}
