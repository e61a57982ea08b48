#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "common/Error.h"
#include "common/NumberText.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

TEST(NumberTextTest, GeneralFormWithFifteenSignificantDigits) {
  const std::pair<double, const char*> cases[] = {
      {0, "0"},
      {0.875, "0.875"},
      {45321.8753240741, "45321.8753240741"},
      {100, "100"},
      {1.0 / 3, "0.333333333333333"},
      {0.0001, "0.0001"},
      {1.0 / 1440, "6.94444444444444E-04"},  // one minute
      {1.0 / 86400, "1.15740740740741E-05"},
      {123456789012345, "123456789012345"},
      {1234567890123456, "1.23456789012346E+15"},
      {1e15, "1E+15"},
      {1e-20, "1E-20"},
  };
  for (const auto& [value, text] : cases) EXPECT_EQ(text, NumberToText(value)) << value;
}

TEST(NumberTextTest, LeadingNumberTakesTheLongestNumericPrefix) {
  EXPECT_DOUBLE_EQ(45321.875, LeadingNumber("45321.875\tTitle"));
  EXPECT_DOUBLE_EQ(1.0 / 1440, LeadingNumber("6.94444444444444E-04"));
  EXPECT_DOUBLE_EQ(12, LeadingNumber("  12abc"));
  EXPECT_DOUBLE_EQ(-350, LeadingNumber("-3.5e2x"));
  EXPECT_DOUBLE_EQ(1, LeadingNumber("1e"));
  EXPECT_DOUBLE_EQ(1, LeadingNumber("1,5"));  // "," is no decimal point
  EXPECT_DOUBLE_EQ(0.5, LeadingNumber(".5"));
  EXPECT_DOUBLE_EQ(5, LeadingNumber("5."));
  EXPECT_DOUBLE_EQ(7, LeadingNumber("+7"));
  EXPECT_DOUBLE_EQ(0, LeadingNumber("abc"));
  EXPECT_DOUBLE_EQ(0, LeadingNumber(""));
  EXPECT_DOUBLE_EQ(0, LeadingNumber("-"));
  EXPECT_DOUBLE_EQ(0, LeadingNumber("."));
  // Beyond the range of a double: the nearest value there is, which writes and reads back.
  EXPECT_EQ(std::numeric_limits<double>::max(), LeadingNumber("1e999"));
  EXPECT_EQ(-std::numeric_limits<double>::max(), *ParseNumber(" -412e0412 "));
  EXPECT_EQ("1.79769313486232E+308", NumberToText(LeadingNumber("3e646387")));
  EXPECT_EQ(std::numeric_limits<double>::max(), *ParseNumber("1.79769313486232E+308"));
  EXPECT_EQ(0, LeadingNumber("1e-999"));
  EXPECT_EQ(5, *ParseNumber("5."));  // the point is part of the number
}

TEST(NumberTextTest, TextRoundTripsThroughTheParse) {
  std::mt19937_64 generator(42);
  std::uniform_real_distribution<double> dates(0, 2958465);  // up to 31 December 9999
  std::uniform_real_distribution<double> exponents(-30, 30);
  for (int i = 0; i < 20000; ++i) {
    const double date = dates(generator);
    const double any = std::pow(10.0, exponents(generator)) * (i % 2 ? -1 : 1);
    for (double value : {date, any}) {
      const double back = LeadingNumber(NumberToText(value));
      EXPECT_NEAR(value, back, std::fabs(value) * 1e-14) << NumberToText(value);
    }
  }
}

TEST(NumberTextTest, IntegerConversionsRoundHalvesToEvenAndCheckTheRange) {
  EXPECT_EQ(2, ToInt32(2.5));
  EXPECT_EQ(4, ToInt32(3.5));
  EXPECT_EQ(-2, ToInt32(-2.5));
  EXPECT_EQ(2147483647, ToInt32(2147483647.4));
  EXPECT_EQ(errnum::Overflow, test::ErrorFrom([] { ToInt32(2147483648.0); }).Number);
  EXPECT_EQ(12, TextToInt32(" 12 "));
  EXPECT_EQ(2, TextToInt32("1.5"));
  for (const char* bad : {"", "abc", "12abc", "1 2"}) {
    EXPECT_EQ(errnum::TypeMismatch, test::ErrorFrom([&] { TextToInt32(bad); }).Number) << bad;
  }
  EXPECT_TRUE(TextToBool("-1"));
  EXPECT_TRUE(TextToBool("True"));
  EXPECT_FALSE(TextToBool("0"));
  EXPECT_FALSE(TextToBool("FALSE"));
  EXPECT_THROW(TextToBool("x"), TWError);
  EXPECT_TRUE(IsNumeric(" 0007 "));
  EXPECT_FALSE(IsNumeric("0003.bak"));
}

}  // namespace
}  // namespace tw
