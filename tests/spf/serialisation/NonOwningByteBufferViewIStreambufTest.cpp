#include "agent/spf/serialisation/NonOwningByteBufferViewIStreambuf.h"

#include <gtest/gtest.h>

#include <istream>
#include <string>

using agent::spf::serialisation::NonOwningByteBufferViewIStreambuf;

TEST(NonOwningByteBufferViewIStreambufTest, ReadsAndSeeksStayWithinTheRange) {
    const std::string bytes = "0123456789";
    NonOwningByteBufferViewIStreambuf buffer(bytes.data() + 2, 5);  // "23456"
    std::istream in(&buffer);
    std::string all;
    in >> all;
    EXPECT_EQ(all, "23456");
    in.clear();
    in.seekg(1);
    EXPECT_EQ(in.get(), '3');
    in.seekg(-1, std::ios_base::end);
    EXPECT_EQ(in.get(), '6');
    EXPECT_EQ(in.get(), std::char_traits<char>::eof());
    in.clear();
    in.seekg(-3, std::ios_base::beg);
    EXPECT_TRUE(in.fail());
    in.clear();
    in.seekg(6, std::ios_base::beg);
    EXPECT_TRUE(in.fail());
    in.clear();
    in.seekg(0);
    EXPECT_EQ(buffer.remaining(), 5u);
    EXPECT_EQ(buffer.in_avail(), 5);
}
