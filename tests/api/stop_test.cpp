// Stopping a run: a host's cancel from another thread, the time limit, and
// what a run after a stopped one sees.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "hosttest.h"
#include "vexor/vexor.h"

namespace {

using vartest::Host;

const char* const endless =
    "VARIABLES x, y;\nPARAMETERS a = 1;\nDOUBLE z;\nWHILE (x > 0) z = z + 1;\nFUNCTION y = a*x;\n"
    "DATA;\n-1 2.1\n2 3.9\n3 6.2\n";

double seconds(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

class Stop : public ::testing::Test {
 protected:
  void TearDown() override { vexor::settimelimit(0); }
  Host h;
};

// WHILE (x > 0) loops for ever on the second observation: cancel() from
// another thread ends the Compute with -10 and the aborted listing.
TEST_F(Stop, CancelFromAnotherThreadStopsAnEndlessLoop) {
  ASSERT_EQ(h.compile(endless), 1) << h.report();
  std::thread canceller([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    vexor::cancel();
  });
  const auto t0 = std::chrono::steady_clock::now();
  const long code = h.compute();
  canceller.join();
  EXPECT_EQ(code, -10);
  EXPECT_LT(seconds(t0), 30.0);
  const std::string r = h.report();
  EXPECT_NE(r.find("Error: Aborting analysis...\r\n"), std::string::npos) << r;
  EXPECT_NE(r.find("Stopped due to: Analysis was aborted\r\n"), std::string::npos) << r;
  EXPECT_FALSE(vexor::timedout());
}

// The time limit stops the same Compute by itself, and says so.
TEST_F(Stop, TimeLimitStopsAnEndlessLoop) {
  ASSERT_EQ(h.compile(endless), 1);
  vexor::settimelimit(0.2);
  EXPECT_EQ(vexor::timelimit(), 0.2);
  EXPECT_EQ(h.compute(), -10);
  EXPECT_TRUE(vexor::timedout());
  // Settings that are no limit.
  vexor::settimelimit(-1);
  EXPECT_EQ(vexor::timelimit(), 0.0);
  vexor::settimelimit(1.0 / 0.0);
  EXPECT_EQ(vexor::timelimit(), 0.0);
}

// EvaluateFunction at x = 2 loops for ever as well: the time limit ends it
// with 0.0, and the next evaluation, at x = -1, runs normally (every run
// starts afresh).  A cancel while nothing runs is forgotten.
TEST_F(Stop, TimeLimitStopsAnEndlessEvaluation) {
  ASSERT_EQ(h.compile(endless), 1);
  vexor::settimelimit(0.2);
  h.evalvalue(0, 2.0);
  const auto t0 = std::chrono::steady_clock::now();
  EXPECT_EQ(h.evalfn(), 0.0);
  EXPECT_LT(seconds(t0), 30.0);
  EXPECT_TRUE(vexor::timedout());
  vexor::cancel();
  h.evalvalue(0, -1.0);
  EXPECT_EQ(h.evalfn(), -1.0);
  EXPECT_FALSE(vexor::timedout());
}

// A time limit far above the run's needs changes nothing.
TEST_F(Stop, AGenerousTimeLimitChangesNothing) {
  ASSERT_EQ(h.compile("VARIABLES x, y;\nPARAMETERS a = 1;\nFUNCTION y = a*x;\nDATA;\n1 2.1\n2 3.9\n3 6.2\n"), 1);
  vexor::settimelimit(3600);
  EXPECT_GE(h.compute(), 3);
  EXPECT_FALSE(vexor::timedout());
  EXPECT_NEAR(h.parm(0, 0), 28.5 / 14.0, 1e-9);
}

}  // namespace
