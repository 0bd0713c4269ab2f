// Texts and numbers for messages and files. References: the C library's printf and strtod.

#include "util/Text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>

namespace {

TEST(Text, AnEndIsFoundOnlyAtTheEnd) {
  EXPECT_TRUE(kelvo::EndsWith("hits.csv", ".csv"));
  EXPECT_TRUE(kelvo::EndsWith(".csv", ".csv"));
  EXPECT_FALSE(kelvo::EndsWith("hits.csv.gz", ".csv"));
  EXPECT_FALSE(kelvo::EndsWith("csv", ".csv"));
}

TEST(Text, TextsAreJoinedByCommas) {
  EXPECT_EQ(kelvo::Joined({}), "");
  EXPECT_EQ(kelvo::Joined({"mu"}), "mu");
  EXPECT_EQ(kelvo::Joined({"mu", "pi", "p"}), "mu, pi, p");
}

TEST(Text, ATomlTextHasBackslashesBeforeWhatMayNotStandThere) {
  EXPECT_EQ(kelvo::TomlText("run 1.csv"), "\"run 1.csv\"");
  EXPECT_EQ(kelvo::TomlText("a\"b\\c"), R"("a\"b\\c")");
  EXPECT_EQ(kelvo::TomlText("a\nb\x7f"), R"("a\u000Ab\u007F")");
  EXPECT_EQ(kelvo::TomlText("\xC3\xA9"), "\"\xC3\xA9\"");
}

TEST(Text, ATerminalGetsNoControlCharacters) {
  EXPECT_EQ(kelvo::Printable("a\x1b[31mb\ac\x7f\r\td"), "a?[31mb?c???d");
  EXPECT_EQ(kelvo::Printable("one\ntwo"), "one\ntwo");
  EXPECT_EQ(kelvo::Printable(std::string(1, '\0') + "a"), "?a");
  // 0x80 and 0x9f, which some terminals obey as well, and the letters at either side of them.
  EXPECT_EQ(kelvo::Printable("\xc2\x80\xc2\x9f"), "??");
  EXPECT_EQ(kelvo::Printable("\xc2\xa0\xc3\x80\xc3\x9f"), "\xc2\xa0\xc3\x80\xc3\x9f");
  EXPECT_EQ(kelvo::Printable("\xc2"), "\xc2");
  for (const char* text : {"\n", "a\x1b", "\xc2\x9bm"}) EXPECT_TRUE(kelvo::HasControls(text));
  for (const char* text : {"", "a b", "\xc2\xa0", "\xc3\x9f", "\xc2"})
    EXPECT_FALSE(kelvo::HasControls(text)) << text;
}

TEST(Text, TextOfAFileIsShownPrintableAndShort) {
  EXPECT_EQ(kelvo::Shown("12 cm"), "\"12 cm\"");
  EXPECT_EQ(kelvo::Shown("a\tb\xFF"), "\"a?b?\"");
  EXPECT_EQ(kelvo::Shown(std::string(60, 'x')), '"' + std::string(60, 'x') + '"');
  EXPECT_EQ(kelvo::Shown(std::string(61, 'x')), '"' + std::string(60, 'x') + "...\"");
}

TEST(Text, ANumberForPeopleIsThatOfPrintf) {
  std::mt19937_64 random(1);
  std::uniform_real_distribution<double> mantissa(-10, 10);
  std::uniform_int_distribution<int> power(-300, 300);
  for (int i = 0; i < 10000; i++) {
    const double value =
        mantissa(random) * std::pow(10, i % 2 ? power(random) : power(random) / 40);
    char expected[32];
    std::snprintf(expected, sizeof expected, "%g", value);
    ASSERT_EQ(kelvo::NumberText(value), expected);
  }
  EXPECT_EQ(kelvo::NumberText(100000), "100000");
  EXPECT_EQ(kelvo::NumberText(std::numeric_limits<double>::infinity()), "inf");
  EXPECT_EQ(kelvo::NumberText(std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(Text, AnExactNumberReadsBackAsTheSameBits) {
  std::mt19937_64 random(2);
  std::uniform_real_distribution<double> mantissa(-10, 10);
  std::uniform_int_distribution<int> power(-300, 300);
  for (int i = 0; i < 10000; i++) {
    const double value = mantissa(random) * std::pow(10, power(random));
    ASSERT_EQ(std::strtod(kelvo::ExactNumber(value).c_str(), nullptr), value);
  }
  EXPECT_EQ(kelvo::ExactNumber(0.1), "0.1");
}

} // namespace
