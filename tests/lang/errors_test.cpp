// The compile error reporters and their listing layout.
#include <string>

#include "langtest.h"

namespace vexor::test {
namespace {

class Errors : public FrontEnd {
 protected:
  void SetUp() override {
    FrontEnd::SetUp();
    srclist = 0;  // only the reports in the Listing
  }
  Token* first(const char* text) {
    srcset(text);
    return gettok();
  }
};

TEST_F(Errors, LineIndentedWithTabsIsShownWithoutItsIndentation) {
  Token* t = first("\t\t  y = 2.385;\n");
  comperr(t, "Syntax error");
  EXPECT_EQ(listing(), "     1: y = 2.385;\r\nError: Syntax error\r\n");
  EXPECT_EQ(ncomperr, 1);
}

TEST_F(Errors, LongLineIsCutToSeventyCharacters) {
  std::string text = "z = " + std::string(100, '7') + ";\n";
  Token* t = first(text.c_str());
  comperr(t, "Syntax error");
  std::string shown = text.substr(0, 70);
  EXPECT_EQ(listing(), "     1: " + shown + "\r\nError: Syntax error\r\n");
}

TEST_F(Errors, TwoErrorsOnOneLineShowTheLineTwice) {
  Token* t = first("a b;\n");
  comperr(t, "First");
  comperr(t, "Second");
  EXPECT_EQ(listing(),
            "     1: a b;\r\nError: First\r\n     1: a b;\r\nError: Second\r\n");
  EXPECT_EQ(ncomperr, 2);
}

TEST_F(Errors, LineNumbersAreRightAligned) {
  std::string text;
  for (int i = 0; i < 1234; ++i) text += "a;\n";
  srcset(text.c_str());
  Token* t = nullptr;
  for (int i = 0; i < 1234 * 2 - 1; ++i) t = gettok();
  ASSERT_EQ(t->kind, TK_NAME);
  comperr(t, "Syntax error");
  EXPECT_EQ(listing(), "  1234: a;\r\nError: Syntax error\r\n");
}

TEST_F(Errors, WithoutALine) {
  comperr(nullptr, "A message");
  comperrl(nullptr, "Another\n");  // ends its line already
  EXPECT_EQ(listing(), "Error: A message\r\nError: Another\r\n");
  EXPECT_EQ(ncomperr, 2);
}

TEST_F(Errors, NoticeDoesNotFailACompilation) {
  echo = 1;
  testing::internal::CaptureStdout();
  notice(nullptr, "Parameter b is never used and is being eliminated.\r\n");
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(ncomperr, 0);
  EXPECT_EQ(out, "Parameter b is never used and is being eliminated.\r\n");
  EXPECT_EQ(listing(), "Parameter b is never used and is being eliminated.\r\r\n");
}

TEST_F(Errors, NoticeOnlyWhereEnabled) {
  noticelisting = 0;
  testing::internal::CaptureStdout();
  notice(nullptr, "quiet");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(listing(), "");
}

TEST_F(Errors, GeneralErrorsAreCountedApart) {
  errmsg("Invalid number");
  EXPECT_EQ(listing(), "Error: Invalid number\r\n");
  EXPECT_EQ(nerrors, 1);
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Errors, DataMessagesCount) {
  datamsg("Data record %ld has too few values", 17L);
  EXPECT_EQ(listing(), "Data record 17 has too few values\r\n");
  EXPECT_EQ(ncomperr, 1);
}

}  // namespace
}  // namespace vexor::test
