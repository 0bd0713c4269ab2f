#include "track/Materials.h"

#include "func/dEdxTable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(Materials, MaterialsWithoutATableAreListedOnce) {
  EXPECT_EQ(kelvo::MaterialsWithoutTable({"Steel", "Air", "PVC", "Silicon", "Air", "steel"}),
            (std::vector<std::string>{"Air", "Silicon", "steel"}));
  EXPECT_TRUE(kelvo::MaterialsWithoutTable(kelvo::MaterialsWithTable()).empty());
  for (const std::string& name : kelvo::MaterialsWithTable())
    EXPECT_TRUE(name == "Vacuum" || kelvo::dEdxTable(name.c_str())(1, 0.1) > 1e-4) << name;
}

} // namespace
