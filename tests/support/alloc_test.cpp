// Tagged allocator: layout, guards, corruption reports and accounting.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "support/support.h"

namespace vexor {
namespace {

std::vector<std::string> reports;
int fatalcalls = 0;

void capture(const char* msg) { reports.emplace_back(msg); }
void countfatal() { ++fatalcalls; }

class AllocTest : public ::testing::Test {
 protected:
  void SetUp() override {
    reports.clear();
    fatalcalls = 0;
    oldhandler = setmemerrorhandler(capture);
    oldhook = setmemfatalhook(countfatal);
    setmemguardlevel(1);
  }
  void TearDown() override {
    setmemguardlevel(1);
    setmemfill(false);
    setmemfreenullsilent(false);
    setmemerrorhandler(oldhandler);
    setmemfatalhook(oldhook);
  }
  MemErrorHandler oldhandler;
  MemFatalHook oldhook;
};

std::string addr(const void* p) {
  char b[40];
  std::snprintf(b, sizeof b, "%llX", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(p)));
  return b;
}

TEST_F(AllocTest, ShortTagKeptWhole) {
  void* p = memalloc(10, "DynamicString");
  EXPECT_STREQ(memtag(p), "DynamicString");
  memfree(p);
  EXPECT_TRUE(reports.empty());
}

TEST_F(AllocTest, LongTagKeepsFirstFourteen) {
  void* p = memalloc(10, "abcdefghijklmnopqrst");  // 20 characters
  EXPECT_STREQ(memtag(p), "abcdefghijklmn");
  memfree(p);
  void* q = memalloc(10, "abcdefghijklmno");  // exactly 15: cut as well
  EXPECT_STREQ(memtag(q), "abcdefghijklmn");
  memfree(q);
}

TEST_F(AllocTest, CallerMemoryIsAlignedAndFenced) {
  auto* p = static_cast<unsigned char*>(memalloc(13, "obs"));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
  for (int i = 1; i <= 16; ++i) EXPECT_EQ(p[-i], 'H');
  for (int i = 0; i < 16; ++i) EXPECT_EQ(p[13 + i], 'T');
  memfree(p);
}

TEST_F(AllocTest, ZeroSizeBlockHasAdjacentGuards) {
  auto* p = static_cast<unsigned char*>(memalloc(0, "zero"));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p[-1], 'H');
  EXPECT_EQ(p[0], 'T');
  EXPECT_EQ(p[15], 'T');
  memfree(p);
  EXPECT_TRUE(reports.empty());
}

TEST_F(AllocTest, TailOverrunReportedOnePastTheBadByte) {
  const std::size_t size = 24;
  auto* p = static_cast<unsigned char*>(memalloc(size, "comp"));
  p[size] = 0;  // one byte past the caller's area
  std::string expect = "\nMemory tail corruption at " + addr(p + size + 1) + ", comp\n";
  memfree(p);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0], expect);
  EXPECT_EQ(fatalcalls, 1);
}

TEST_F(AllocTest, HeadUnderrunReportedAtTheBadByte) {
  auto* p = static_cast<unsigned char*>(memalloc(8, "vd"));
  p[-3] = 'z';
  std::string expect = "\nMemory head corruption at " + addr(p - 3) + ", vd\n";
  memfree(p);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0], expect);
}

TEST_F(AllocTest, LowerCaseFirstHeadByteIsGood) {
  auto* p = static_cast<unsigned char*>(memalloc(8, "vd"));
  p[-16] = 'h';
  memfree(p);
  EXPECT_TRUE(reports.empty());
  auto* q = static_cast<unsigned char*>(memalloc(8, "vd"));
  q[-15] = 'h';  // only the first guard byte may be 'h'
  memfree(q);
  EXPECT_EQ(reports.size(), 1u);
}

TEST_F(AllocTest, SecondFreeIsHeadCorruptionAtFirstGuardByte) {
  auto* p = static_cast<unsigned char*>(memalloc(32, "listr"));
  long live = memlivecount();
  memfree(p);
  EXPECT_TRUE(reports.empty());
  memfree(p);
  // Checking goes on after each bad byte: all sixteen 'X' bytes are reported,
  // in order, each with a call of the fatal hook.
  ASSERT_EQ(reports.size(), 16u);
  for (int i = 0; i < 16; ++i)
    EXPECT_EQ(reports[i], "\nMemory head corruption at " + addr(p - 16 + i) + ", listr\n");
  EXPECT_EQ(fatalcalls, 16);
  EXPECT_EQ(memlivecount(), live - 2);  // every free counts, as the log says
}

// A large block goes back to the heap at its free (the ring keeps only its
// address and tag), and a second free is reported all the same: sixteen
// head-corruption reports from the first guard byte on, with its tag, and
// no read of the released memory (the sanitizer build would see one).
TEST_F(AllocTest, SecondFreeOfALargeBlockIsReportedFromTheRing) {
  const std::size_t before = membytes();
  auto* p = static_cast<unsigned char*>(memalloc(1 << 20, "obs"));
  long live = memlivecount();
  memfree(p);
  EXPECT_EQ(membytes(), before);
  EXPECT_TRUE(reports.empty());
  memfree(p);
  ASSERT_EQ(reports.size(), 16u);
  for (int i = 0; i < 16; ++i)
    EXPECT_EQ(reports[i], "\nMemory head corruption at " + addr(p - 16 + i) + ", obs\n");
  EXPECT_EQ(memlivecount(), live - 2);
}

// A resize keeps the contents, the tag and working guards; the part beyond
// the old size is not cleared, and the block counts with its new size.
TEST_F(AllocTest, ResizeKeepsContentsTagAndGuards) {
  auto* p = static_cast<unsigned char*>(memalloc(100, "obs"));
  for (int i = 0; i < 100; ++i) p[i] = static_cast<unsigned char>(i);
  const std::size_t bytes = membytes();
  const uint32_t serial = memserial();
  auto* q = static_cast<unsigned char*>(memresize(p, 3 << 20));
  ASSERT_NE(q, nullptr);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(q[i], i);
  EXPECT_STREQ(memtag(q), "obs");
  EXPECT_EQ(membytes(), bytes - 100 + (3u << 20));
  EXPECT_EQ(memserial(), serial + 1);
  q = static_cast<unsigned char*>(memresize(q, 50));
  for (int i = 0; i < 50; ++i) ASSERT_EQ(q[i], i);
  q[50] = 'x';  // one past the end: the tail guard moved with the size
  memfree(q);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0], "\nMemory tail corruption at " + addr(q + 51) + ", obs\n");
}

TEST_F(AllocTest, ZeroedAllocationIsZeroAndGuarded) {
  setmemfill(true);  // the fill applies to memalloc, not to a zeroed block
  auto* p = static_cast<unsigned char*>(memalloczero(1 << 20, "obs"));
  ASSERT_NE(p, nullptr);
  EXPECT_STREQ(memtag(p), "obs");
  for (std::size_t i = 0; i < (1u << 20); i += 4093) ASSERT_EQ(p[i], 0);
  p[-1] = 'y';
  memfree(p);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0], "\nMemory head corruption at " + addr(p - 1) + ", obs\n");
  setmemguardlevel(0);
  double* d = static_cast<double*>(memalloczero(800, "obs"));
  EXPECT_EQ(d[99], 0.0);
  d = static_cast<double*>(memresize(d, 8000));
  EXPECT_EQ(d[99], 0.0);
  memfree(d);
}

TEST_F(AllocTest, ReallocSameSizeReturnsSameBlock) {
  void* p = memalloc(40, "obs");
  EXPECT_EQ(memrealloc(p, 40), p);
  memfree(p);
}

TEST_F(AllocTest, ReallocKeepsContentsAndTagAndClearsTheRest) {
  auto* p = static_cast<unsigned char*>(memalloc(4, "obs"));
  std::memcpy(p, "abcd", 4);
  auto* q = static_cast<unsigned char*>(memrealloc(p, 10));
  EXPECT_EQ(std::memcmp(q, "abcd", 4), 0);
  for (int i = 4; i < 10; ++i) EXPECT_EQ(q[i], 0);
  EXPECT_STREQ(memtag(q), "obs");
  auto* r = static_cast<unsigned char*>(memrealloc(q, 2));
  EXPECT_EQ(std::memcmp(r, "ab", 2), 0);
  memfree(r);
  void* n = memrealloc(nullptr, 5);
  EXPECT_STREQ(memtag(n), "realloc");
  memfree(n);
  EXPECT_TRUE(reports.empty());
}

TEST_F(AllocTest, AccountingReturnsAfterCycle) {
  long live = memlivecount();
  std::size_t bytes = membytes();
  uint32_t serial = memserial();
  void* a = memalloc(100, "a");
  void* b = memalloc(250, "b");
  EXPECT_EQ(memlivecount(), live + 2);
  EXPECT_EQ(membytes(), bytes + 350);
  EXPECT_GE(mempeak(), bytes + 350);
  EXPECT_EQ(memserial(), serial + 2);
  memfree(a);
  memfree(b);
  EXPECT_EQ(memlivecount(), live);
  EXPECT_EQ(membytes(), bytes);
  std::size_t peak = mempeak();
  void* c = memalloc(1, "c");
  memfree(c);
  EXPECT_EQ(mempeak(), peak);  // the peak does not move back
}

TEST_F(AllocTest, LevelTwoFindsCorruptionInAnotherBlock) {
  setmemguardlevel(2);
  auto* victim = static_cast<unsigned char*>(memalloc(8, "victim"));
  auto* other = static_cast<unsigned char*>(memalloc(8, "other"));
  victim[8] = '!';
  memfree(other);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0], "\nMemory tail corruption at " + addr(victim + 9) + ", victim\n");
  victim[8] = 'T';
  memfree(victim);
  EXPECT_EQ(reports.size(), 1u);
}

TEST_F(AllocTest, LevelOneChecksOnlyTheFreedBlock) {
  auto* victim = static_cast<unsigned char*>(memalloc(8, "victim"));
  auto* other = static_cast<unsigned char*>(memalloc(8, "other"));
  victim[8] = '!';
  memfree(other);
  EXPECT_TRUE(reports.empty());
  memcheckall();
  EXPECT_EQ(reports.size(), 1u);
  victim[8] = 'T';
  memfree(victim);
}

TEST_F(AllocTest, FillFlagFillsNewMemory) {
  setmemfill(true);
  auto* p = static_cast<unsigned char*>(memalloc(7, "fill"));
  for (int i = 0; i < 7; ++i) EXPECT_EQ(p[i], 0xFE);
  EXPECT_EQ(p[7], 'T');
  memfree(p);
  auto* z = static_cast<unsigned char*>(memcalloc(7, "fill"));
  for (int i = 0; i < 7; ++i) EXPECT_EQ(z[i], 0);
  memfree(z);
}

TEST_F(AllocTest, FreeingNullIsReportedUnlessSilent) {
  memfree(nullptr);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0], "\nmemfree: Freeing null memory block\n");
  EXPECT_EQ(fatalcalls, 1);
  setmemfreenullsilent(true);
  long live = memlivecount();
  memfree(nullptr);
  EXPECT_EQ(reports.size(), 1u);
  EXPECT_EQ(memlivecount(), live);
}

TEST_F(AllocTest, PlainModeCountsBlocksOnly) {
  setmemguardlevel(0);
  long live = memlivecount();
  std::size_t bytes = membytes();
  void* p = memalloc(64, "plain");
  EXPECT_EQ(memlivecount(), live + 1);
  EXPECT_EQ(membytes(), bytes);
  p = memrealloc(p, 128);
  memfree(p);
  EXPECT_EQ(memlivecount(), live);
}

TEST_F(AllocTest, ElementAllocators) {
  double* d = memallocdoubles("comp", 5);
  int32_t* i = memallocints("comp", 5);
  d[4] = 1.5;
  i[4] = 7;
  memcheck(d);
  memcheck(i);
  EXPECT_TRUE(reports.empty());
  memfree(d);
  memfree(i);
}

// A request the heap cannot satisfy: the report, the fatal hook, a null
// result, and the element forms then check every live block.
TEST_F(AllocTest, AllocationFailureIsReported) {
  long live = memlivecount();
  std::size_t bytes = membytes();
  EXPECT_EQ(memalloc(SIZE_MAX - 8, "huge"), nullptr);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0], "\nInsufficient free memory space is available.\n");
  EXPECT_EQ(fatalcalls, 1);
  EXPECT_EQ(memlivecount(), live);
  EXPECT_EQ(membytes(), bytes);

  // A corrupted live block is found by the walk that follows the failure.
  auto* bad = static_cast<unsigned char*>(memalloc(8, "datarec"));
  bad[8] = 0;
  reports.clear();
  EXPECT_EQ(memallocdoubles("comp", LONG_MAX / 4), nullptr);  // count * 8 overflows
  ASSERT_GE(reports.size(), 2u);
  EXPECT_EQ(reports[0], "\nInsufficient free memory space is available.\n");
  EXPECT_EQ(reports[1], "\nMemory tail corruption at " + addr(bad + 9) + ", datarec\n");
  reports.clear();
  EXPECT_EQ(memallocints("comp", LONG_MAX / 2), nullptr);
  ASSERT_GE(reports.size(), 2u);
  EXPECT_EQ(reports[1], "\nMemory tail corruption at " + addr(bad + 9) + ", datarec\n");
  bad[8] = 'T';
  reports.clear();
  memfree(bad);
  EXPECT_TRUE(reports.empty());
}

// At level 2 an allocation walks every live block as well.
TEST_F(AllocTest, LevelTwoChecksOnAllocation) {
  auto* p = static_cast<unsigned char*>(memalloc(8, "slb"));
  p[-3] = '?';
  setmemguardlevel(2);
  void* q = memalloc(4, "other");
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0], "\nMemory head corruption at " + addr(p - 3) + ", slb\n");
  setmemguardlevel(1);
  p[-3] = 'H';
  reports.clear();
  memfree(q);
  memfree(p);
  EXPECT_TRUE(reports.empty());
}

// The handler and the hook may use the allocator themselves (a handler that
// writes the report into the listing, say), during a free or a check.
TEST_F(AllocTest, HandlerMayAllocate) {
  setmemerrorhandler([](const char* msg) {
    reports.emplace_back(msg);
    void* scratch = memalloc(32, "report");
    memfree(scratch);
  });
  setmemfatalhook([] {
    ++fatalcalls;
    memfree(memalloc(16, "hook"));
  });
  auto* p = static_cast<unsigned char*>(memalloc(8, "vd"));
  p[8] = 'x';
  memfree(p);
  EXPECT_EQ(reports.size(), 1u);
  EXPECT_EQ(fatalcalls, 1);
}

// Without a handler of its own the allocator writes its reports to standard
// error, and the default fatal hook does nothing: the caller goes on.
TEST_F(AllocTest, DefaultHandlerWritesToStandardError) {
  setmemerrorhandler(nullptr);
  setmemfatalhook(nullptr);
  auto* p = static_cast<unsigned char*>(memalloc(5, "linebuf"));
  p[5] = 0;
  ::testing::internal::CaptureStderr();
  memfree(p);
  std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, "\nMemory tail corruption at " + addr(p + 6) + ", linebuf\n");
}

// A block of 4 GiB or more keeps its whole size: no false tail reports, and
// the byte count goes back where it was.  Only the first and last pages are
// touched, so little real memory is used.
TEST_F(AllocTest, HugeBlockKeepsItsWholeSize) {
  const std::size_t size = (std::size_t{1} << 32) + 16;
  std::size_t bytes = membytes();
  auto* p = static_cast<unsigned char*>(memalloc(size, "obs"));
  if (!p) GTEST_SKIP() << "the heap refused 4 GiB";
  p[0] = 1;
  p[size - 1] = 2;
  EXPECT_EQ(membytes(), bytes + size);
  memfree(p);
  EXPECT_TRUE(reports.empty());
  EXPECT_EQ(membytes(), bytes);
}

// Plain mode with the fill flag: the caller's area is 0xFE throughout.
TEST_F(AllocTest, PlainModeFillsNewMemory) {
  setmemguardlevel(0);
  setmemfill(true);
  long live = memlivecount();
  auto* p = static_cast<unsigned char*>(memalloc(7, "plain"));
  for (int i = 0; i < 7; ++i) EXPECT_EQ(p[i], 0xFE);
  EXPECT_EQ(memlivecount(), live + 1);
  memfree(p);
  EXPECT_EQ(memlivecount(), live);
}

}  // namespace
}  // namespace vexor
