// Element-level behaviour: typed getters and their reinterpretation, equality
// rules (the 64-bit element never equal), the element array's padding rules.
#include "message/NDKMessageData.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

TEST(NDKMessageData, GettersReinterpretAndReportTheTypeMatch) {
    CNDKMessageData fromInt(0x3FC00000);
    float f = 0;
    EXPECT_FALSE(fromInt.Get(f));
    EXPECT_EQ(f, 1.5f);   // the int's bit pattern read as a float
    int i = 0;
    EXPECT_TRUE(fromInt.Get(i));
    EXPECT_EQ(i, 0x3FC00000);

    std::string text = "stale";
    EXPECT_FALSE(fromInt.Get(text));
    EXPECT_EQ(text, "");   // always assigned, empty for non-string elements

    const unsigned char bytes[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    CNDKMessageData buffer(bytes, sizeof bytes);
    unsigned char out[6] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_TRUE(buffer.Get(out, 4));
    EXPECT_EQ(0, std::memcmp(out, bytes, 4));
    EXPECT_EQ(out[4], 0xEE);
    EXPECT_TRUE(buffer.Get(nullptr, 4));    // true even though nothing was copied
    EXPECT_FALSE(fromInt.Get(out, 4));
    EXPECT_EQ(CNDKMessageData().GetDataType(), NDKString);
}

TEST(NDKMessageData, EqualityFollowsTheTypeRules) {
    EXPECT_NE(CNDKMessageData(5ULL), CNDKMessageData(5ULL));
    const CNDKMessageData big(7ULL);
    EXPECT_FALSE(big == CNDKMessageData(big));   // not even equal to its copy
    EXPECT_EQ(CNDKMessageData(std::string("abc")), CNDKMessageData(std::string("abc")));
    EXPECT_NE(CNDKMessageData(std::string("abc")), CNDKMessageData(std::string("ABC")));
    EXPECT_NE(CNDKMessageData(1), CNDKMessageData(1u));   // codes differ
    EXPECT_EQ(CNDKMessageData(0.0f), CNDKMessageData(-0.0f));
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_NE(CNDKMessageData(nan), CNDKMessageData(nan));
    EXPECT_NE(CNDKMessageData(1.0), CNDKMessageData(2.0));
    EXPECT_EQ(CNDKMessageData(nullptr, 0), CNDKMessageData("", 0));
    EXPECT_NE(CNDKMessageData("ab", 2), CNDKMessageData("ac", 2));
    EXPECT_NE(CNDKMessageData("ab", 2), CNDKMessageData("abc", 3));
}

TEST(NDKMessageData, CopiesOwnTheirBytes) {
    char bytes[4] = {'w', 'x', 'y', 'z'};
    CNDKMessageData a(bytes, 4);
    bytes[0] = 'q';   // the element took a copy
    CNDKMessageData b(a);
    CNDKMessageData c;
    c = a;
    const CNDKMessageData& alias = c;
    c = alias;   // self-assignment keeps the bytes
    EXPECT_NE(a.GetDataBuffer().GetBuffer(), b.GetDataBuffer().GetBuffer());
    EXPECT_EQ(0, std::memcmp(c.GetDataBuffer().GetBuffer(), "wxyz", 4));
    EXPECT_EQ(a, b);
    EXPECT_EQ(a, c);

    CNDKDataBuffer empty(bytes, 0);
    EXPECT_EQ(empty.GetBuffer(), nullptr);
    EXPECT_EQ(empty.GetLength(), 0u);
}

TEST(Elements, SetAtGrowPadsWithIntZerosAndSetAtIgnoresThePastEnd) {
    CElements elements;
    elements.SetAtGrow(3, CNDKMessageData(std::string("x")));
    ASSERT_EQ(elements.GetSize(), 4);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(elements.GetAt(i), CNDKMessageData(0));
    EXPECT_EQ(elements.GetAt(3), CNDKMessageData(std::string("x")));

    elements.SetAt(4, CNDKMessageData(9));
    EXPECT_EQ(elements.GetSize(), 4);
    elements.SetAt(1, CNDKMessageData(9));
    EXPECT_EQ(elements.GetAt(1), CNDKMessageData(9));

    elements.SetAtGrow(5, elements.GetAt(3));   // source inside the growing array
    EXPECT_EQ(elements.GetAt(5), CNDKMessageData(std::string("x")));
    elements.Append(elements);
    EXPECT_EQ(elements.GetSize(), 12);
    EXPECT_EQ(elements.GetAt(11), CNDKMessageData(std::string("x")));

    elements.SetSize(2);
    EXPECT_EQ(elements.GetSize(), 2);
    elements.SetSize(3);
    EXPECT_EQ(elements.GetAt(2), CNDKMessageData(0));
}
