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
