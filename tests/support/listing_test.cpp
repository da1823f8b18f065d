// The Listing: CR LF storage, lengths, the channels, cutting of long texts.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kit/kit.h"
#include "support/support.h"

namespace vexor {
namespace {

std::string listing() { return kit::listing(true); }

std::vector<std::string> records() {
  std::vector<std::string> v;
  lstforeach([&](const char* t) { v.emplace_back(t); });
  return v;
}

class ListingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    lstclear();
    echo = 0;
    lstenabled = 1;
    ncomperr = 0;
  }
  void TearDown() override {
    lstclear();
    echo = 0;
  }
};

// Records written between lstcapture and lstcaptured are set aside; the
// Listing's length counts them only once they are replayed, where they go
// in their order.
TEST_F(ListingTest, SetAsideRecordsLandWhereReplayed) {
  lstprintf("one\n");
  lstcapture();
  lstprintf("later a\n");
  lstprintf("later b\n");
  LstCapture c = lstcaptured();
  EXPECT_EQ(listing(), "one\r\n");
  EXPECT_EQ(lstlength(), 1 + 5);
  lstprintf("two\n");
  lstreplay(c);
  lstprintf("three\n");
  EXPECT_EQ(listing(), "one\r\ntwo\r\nlater a\r\nlater b\r\nthree\r\n");
  EXPECT_EQ(lstlength(), 1 + static_cast<long>(listing().size()));
  std::vector<char> buf(static_cast<std::size_t>(lstlength()));
  lstcopy(buf.data());
  EXPECT_EQ(std::string(buf.data()), listing());
}

// Nothing written while capturing gives an empty set; replaying it changes
// nothing, and an unreplayed set goes with lstclear.
TEST_F(ListingTest, EmptyAndUnreplayedSetAsides) {
  lstcapture();
  LstCapture none = lstcaptured();
  EXPECT_EQ(none.first, nullptr);
  lstreplay(none);
  EXPECT_EQ(listing(), "");
  lstcapture();
  lstprintf("dropped\n");
  lstcaptured();
  lstclear();
  lstprintf("after\n");
  EXPECT_EQ(listing(), "after\r\n");
}

TEST_F(ListingTest, LineFeedsStoredAsCrLf) {
  lstprintf("a\nb\n");
  ASSERT_EQ(records().size(), 1u);
  EXPECT_EQ(records()[0], "a\r\nb\r\n");
  EXPECT_EQ(records()[0].size(), 6u);
  EXPECT_EQ(lstlength(), 7);
}

TEST_F(ListingTest, EmptyTextAddsEmptyRecord) {
  lstprintf("x");
  long before = lstlength();
  lstprintf("%s", "");
  EXPECT_EQ(records().size(), 2u);
  EXPECT_EQ(records()[1], "");
  EXPECT_EQ(lstlength(), before);
}

TEST_F(ListingTest, EmptyListing) {
  EXPECT_EQ(lstlength(), 1);
  char buf[1] = {'z'};
  lstcopy(buf);
  EXPECT_EQ(buf[0], '\0');
}

TEST_F(ListingTest, ExistingCrLfGetsAnotherCr) {
  lstprintf("a\r\n");
  EXPECT_EQ(records()[0], "a\r\r\n");
}

TEST_F(ListingTest, CopyJoinsRecordsInOrder) {
  lstprintf("%d: %s\n", 1, "one");
  lstprintf("two");
  lstprintf("%5.2f\n", 2.5);
  std::string whole(static_cast<std::size_t>(lstlength()), '\0');
  lstcopy(whole.data());
  EXPECT_STREQ(whole.c_str(), "1: one\r\ntwo 2.50\r\n");
  EXPECT_EQ(listing(), "1: one\r\ntwo 2.50\r\n");
}

TEST_F(ListingTest, LongTextIsCutAndKeepsItsLineEnd) {
  std::string big(1000, 'q');
  lstprintf("%s\n", big.c_str());
  std::string r = records()[0];
  EXPECT_EQ(r, std::string(LSTMAXTEXT - 2, 'q') + "\r\n");
  lstprintf("%s", big.c_str());
  EXPECT_EQ(records()[1], std::string(LSTMAXTEXT - 2, 'q'));
  std::string exact(LSTMAXTEXT - 1, 'e');  // 599 characters fit whole
  lstprintf("%s", exact.c_str());
  EXPECT_EQ(records()[2], exact);
}

// The console gets a long text whole; the Listing's copy is cut.
TEST_F(ListingTest, OutprintfCutsOnlyTheListingCopy) {
  std::string big(1000, 'q');
  echo = 1;
  ::testing::internal::CaptureStdout();
  outprintf("%s\n", big.c_str());
  std::string out = ::testing::internal::GetCapturedStdout();
  echo = 0;
  EXPECT_EQ(out, big + "\n");
  EXPECT_EQ(records()[0], std::string(LSTMAXTEXT - 2, 'q') + "\r\n");
}

TEST_F(ListingTest, OutprintfHonoursTheListingSwitch) {
  outprintf("%s\n", "shown");
  lstenabled = 0;
  outprintf("%s\n", "hidden");
  lstenabled = 1;
  EXPECT_EQ(listing(), "shown\r\n");
}

TEST_F(ListingTest, OutprintfEchoesToConsoleWhenOn) {
  echo = 1;
  testing::internal::CaptureStdout();
  outprintf("%4d: %s\n", 3, "x = 1;");
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, "   3: x = 1;\n");
  EXPECT_EQ(listing(), "   3: x = 1;\r\n");
}

TEST_F(ListingTest, OutprintfWritesTheListingFile) {
  FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  lstfile = f;
  outprintf("file %d\n", 7);
  lstfile = nullptr;
  std::string written = kit::readstream(f);
  std::fclose(f);
  EXPECT_EQ(written, "file 7\n");
}

TEST_F(ListingTest, LsterrorCountsAndEndsItsLine) {
  lsterror("Invalid number");
  lsterror("Already ends\n");
  EXPECT_EQ(listing(), "Error: Invalid number\r\nError: Already ends\r\n");
  EXPECT_EQ(ncomperr, 2);
}

// With a listing file open, lsterror also writes "Error: %s\n" there.
TEST_F(ListingTest, LsterrorWritesToAnOpenListingFile) {
  FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  lstfile = f;
  lsterror("Invalid number");
  lstfile = nullptr;
  std::string written = kit::readstream(f);
  std::fclose(f);
  EXPECT_EQ(written, "Error: Invalid number\n");
  EXPECT_EQ(listing(), "Error: Invalid number\r\n");
}

TEST_F(ListingTest, SrcpathUsesTheReferenceDirectory) {
  char out[128];
  srcpath("data.dat", out, sizeof out);
  EXPECT_STREQ(out, "data.dat");  // the reference path is empty
  std::snprintf(srcrefpath, LSTMAXTEXT, "%s", "C:\\work\\prog.vex");
  srcpath("data.dat", out, sizeof out);
  EXPECT_STREQ(out, "C:\\work\\data.dat");
  srcpath("D:x.dat", out, sizeof out);
  EXPECT_STREQ(out, "D:x.dat");
  srcpath("sub/x.dat", out, sizeof out);  // '/' is an ordinary character
  EXPECT_STREQ(out, "C:\\work\\sub/x.dat");
  srcrefpath[0] = '\0';
}

// Records and their texts share chunks of 64 KiB: two short lines take one
// allocator block, and lstclear frees it.
TEST_F(ListingTest, ClearFreesEverything) {
  long live = memlivecount();
  lstprintf("a\n");
  lstprintf("b\n");
  EXPECT_EQ(memlivecount(), live + 1);
  lstclear();
  EXPECT_EQ(memlivecount(), live);
  EXPECT_EQ(lstlength(), 1);
}

// A million error lines, the listing of a run that fails on each of a
// million observations: the memory they take stays within 1.5 times their
// text (records, texts and chunks together), and the text reads back whole.
TEST_F(ListingTest, AMillionLinesCostCloseToTheirText) {
  const std::size_t before = membytes();
  const char* line = "Error executing line 3: FUNCTION y = a*sqrt(x - 2);\n";
  for (int i = 0; i < 1000000; ++i) lstprintf("%s", line);
  const long text = lstlength() - 1;
  EXPECT_EQ(text, 1000000L * static_cast<long>(std::strlen(line) + 1));
  EXPECT_LT(static_cast<double>(membytes() - before), 1.5 * static_cast<double>(text));
  long n = 0;
  lstforeach([&](const char* t) { n += static_cast<long>(std::strlen(t)); });
  EXPECT_EQ(n, text);
  lstclear();
  EXPECT_EQ(membytes(), before);
}

}  // namespace
}  // namespace vexor

namespace vexor {
namespace {

std::string withext(const char* name, const char* ext) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%s", name);
  defext(buf, ext, sizeof buf);
  return buf;
}

TEST(DefaultExtension, CaseFollowsTheLastLetter) {
  EXPECT_EQ(withext("RESULT", "out"), "RESULT.OUT");
  EXPECT_EQ(withext("result", "OUT"), "result.out");
  EXPECT_EQ(withext("res.txt", "out"), "res.txt");
  EXPECT_EQ(withext("a.b/c", "out"), "a.b/c");  // a point anywhere
  EXPECT_EQ(withext("RUN1", "par"), "RUN1.par");  // a digit is not upper case
  EXPECT_EQ(withext("name \t", "dat"), "name.dat");
}

}  // namespace
}  // namespace vexor
