// Helpers shared by the language tests: a clean state around every test,
// the Listing as one string, and the lexer driven from text.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kit/kit.h"
#include "lang/lang.h"

namespace vexor::test {

// Frees everything the lexer and the symbol table may hold.
inline void freeall() {
  freetoks();
  freelines();
  symclear();
  srcfree();
  lstclear();
}

// The Listing as stored (CR LF line ends).
inline std::string listing() { return kit::listing(true); }

// A lexer exit handler that records the status instead of ending the
// process.
inline int& exitstatus() {
  static int status = -1;
  return status;
}
inline void recordexit(int status) { exitstatus() = status; }

// Every front-end test starts from an empty engine and ends by freeing all
// it made; the allocator's live-block count must come back to where it was.
class FrontEnd : public ::testing::Test {
 protected:
  void SetUp() override {
    freeall();
    baseline = memlivecount();
    ncomperr = 0;
    nerrors = 0;
    echo = 0;
    srclist = 1;
    noticelisting = 1;
    exitstatus() = -1;
    oldexit = setlexexit(recordexit);
  }
  void TearDown() override {
    freeall();
    setlexexit(oldexit);
    EXPECT_EQ(memlivecount(), baseline) << "blocks left behind";
    echo = 0;
  }
  // Sets the source text and the lexer going on it.
  void source(const char* text) { srcset(text); }

  // All tokens up to and including TK_EOF (kinds only).
  std::vector<int> kinds() {
    std::vector<int> k;
    for (int i = 0; i < 100000; ++i) {
      Token* t = gettok();
      k.push_back(t->kind);
      bool end = t->kind == TK_EOF;
      freetok(t);
      if (end) break;
    }
    return k;
  }

  long baseline = 0;
  LexExitHandler oldexit = nullptr;
};

}  // namespace vexor::test
