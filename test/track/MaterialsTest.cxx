#include "track/Materials.h"

#include "func/dEdxTable.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Materials, ThereIsATableForEachThatIsListed) {
  for (const char* name : {"Air", "Silicon", "steel"}) EXPECT_FALSE(kelvo::HasTable(name));
  for (const std::string& name : kelvo::MaterialsWithTable())
    EXPECT_TRUE(name == "Vacuum" || kelvo::dEdxTable(name.c_str())(1, 0.1) > 1e-4) << name;
}

} // namespace
