// A fixture that compiles whole programs (srcset + compile) and runs them.
#pragma once

#include "compiler/compiler.h"
#include "exectest.h"

namespace vexor::test {

class RunTest : public ExecTest {
 protected:
  void SetUp() override {
    freeall();
    ExecTest::SetUp();
    ncomperr = 0;
    echo = 0;
  }
  void TearDown() override {
    freeall();
    ExecTest::TearDown();
  }
  static void freeall() {
    freeallnodes();
    freetoks();
    freelines();
    symclear();
    freeopsegs();
    freedata();
    srcfree();
    lstclear();
  }
  // Compiles the program; the listing is then emptied so that only what
  // the run writes is seen.  Returns false (and keeps the listing) when the
  // compilation failed.
  bool build(const char* text) {
    srcset(text);
    OpInstr* start = compile();
    if (!start) {
      ADD_FAILURE() << "compilation failed:\n" << listing();
      return false;
    }
    lstclear();
    resetwork();
    return true;
  }
  double value(const char* name) {
    Symbol* s = symfind(name);
    EXPECT_NE(s, nullptr) << name;
    return s ? s->value : 0.0;
  }
};

}  // namespace vexor::test
