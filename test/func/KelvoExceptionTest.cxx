#include "func/KelvoException.h"

#include <gtest/gtest.h>

#include <iostream>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>

namespace {

std::string Printed(kelvo::KelvoException e) {
  testing::internal::CaptureStdout();
  e.Print();
  return testing::internal::GetCapturedStdout();
}

std::string Report(const std::string& message, const std::string& value) {
  return "\nKelvoException " + message + " with value = " + value +
         " found in func/Lutz at line 42.\n";
}

TEST(KelvoException, PrintsTheMessageOfEachCode) {
  const char* messages[] = {"UNKNOWN",
                            "bad KE",
                            "bad radiation length",
                            "num scat surf <= num measurements",
                            "index problem",
                            "nan encountered",
                            "bad sigx",
                            "bad sigSJ",
                            "bad value for p",
                            "bad value for beta",
                            "track NDOF is too small",
                            "too few planes in one view",
                            "tracking failure",
                            "UNKNOWN"};
  for (unsigned code = 0; code < 14; code++)
    EXPECT_EQ(Printed({"func/Lutz", 42, code, -0.5}), Report(messages[code], "-0.5")) << code;
  EXPECT_EQ(Printed({"func/Lutz", 42, 4294967295u, 1}), Report("UNKNOWN", "1"));
}

TEST(KelvoException, NamesItsCodesInOrder) {
  using namespace kelvo;
  const unsigned codes[] = {kBadKE,   kBadRadLength, kBadNScat,     kIndexProblem,
                            kNaN,     kBadSigX,      kBadSigSJ,     kBadP,
                            kBadBeta, kNDOFTooSmall, kTooFewPlanes, kTrackingFailure};
  for (unsigned i = 0; i < 12; i++) EXPECT_EQ(codes[i], i + 1);
}

TEST(KelvoException, PrintsValuesAsAStreamDoesByDefault) {
  EXPECT_EQ(Printed({"func/Lutz", 42, 6, 0.0}), Report("bad sigx", "0"));
  EXPECT_EQ(Printed({"func/Lutz", 42, 6, -0.25}), Report("bad sigx", "-0.25"));
  EXPECT_EQ(Printed({"func/Lutz", 42, 6, 1234567.0}), Report("bad sigx", "1.23457e+06"));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  std::ostringstream asStream;
  asStream << nan;
  EXPECT_EQ(Printed({"func/Lutz", 42, 5, nan}), Report("nan encountered", asStream.str()));
}

TEST(KelvoException, CarriesWhatItWasMadeOf) {
  const char* file = "func/Path";
  try {
    throw kelvo::KelvoException(file, 7, 99, 2.5);
  } catch (kelvo::KelvoException& e) {
    EXPECT_EQ(e.fFile, file);
    EXPECT_EQ(e.fLine, 7u);
    EXPECT_EQ(e.fCode, 99u);
    EXPECT_EQ(e.fValue, 2.5);
  }
}

TEST(KelvoException, KeepsTheStandardTextInWhat) {
  const kelvo::KelvoException e("func/Lutz", 42, 6, -0.5);
  EXPECT_STREQ(e.what(), std::exception().what());
  EXPECT_TRUE((std::is_base_of_v<std::exception, kelvo::KelvoException>));
}

TEST(KelvoException, LeavesTheStreamBadAfterANullFile) {
  testing::internal::CaptureStdout();
  kelvo::KelvoException(nullptr, 1, 6, 1).Print();
  const bool bad = std::cout.bad();
  std::cout.clear();
  EXPECT_TRUE(bad);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\nKelvoException bad sigx with value = 1 found in ");
}

} // namespace
