#include "util/AllowedThreads.h"

#include <gtest/gtest.h>

#include <sched.h>

#include <cstdlib>

namespace {

/// The processors that the process may run on, given back at the end.
class AllowedThreads : public testing::Test {
protected:
  void SetUp() override {
    unsetenv("SLURM_CPUS_PER_TASK");
    ASSERT_EQ(sched_getaffinity(0, sizeof fBefore, &fBefore), 0);
  }
  void TearDown() override {
    sched_setaffinity(0, sizeof fBefore, &fBefore);
    unsetenv("SLURM_CPUS_PER_TASK");
  }

  void AllowOnlyTheFirst() {
    for (int i = 0; i < CPU_SETSIZE; i++) {
      if (!CPU_ISSET(i, &fBefore)) continue;
      cpu_set_t one;
      CPU_ZERO(&one);
      CPU_SET(i, &one);
      ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
      return;
    }
  }

  cpu_set_t fBefore{};
};

TEST_F(AllowedThreads, AreTheProcessorsThatTheProcessMayRunOn) {
  EXPECT_EQ(util::AllowedThreads(), static_cast<unsigned>(CPU_COUNT(&fBefore)));
  AllowOnlyTheFirst();
  EXPECT_EQ(util::AllowedThreads(), 1u);
}

TEST_F(AllowedThreads, AreNoMoreThanTheBatchSystemGives) {
  setenv("SLURM_CPUS_PER_TASK", "1", 1);
  EXPECT_EQ(util::AllowedThreads(), 1u);
  setenv("SLURM_CPUS_PER_TASK", "100000", 1);
  EXPECT_EQ(util::AllowedThreads(), static_cast<unsigned>(CPU_COUNT(&fBefore)));
  setenv("SLURM_CPUS_PER_TASK", "many", 1);
  EXPECT_EQ(util::AllowedThreads(), static_cast<unsigned>(CPU_COUNT(&fBefore)));
}

} // namespace
