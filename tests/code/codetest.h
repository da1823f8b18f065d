// The fixture of the expression tests: the language tests' fixture, with
// the expression nodes and the code blocks freed as well.
#pragma once

#include "../lang/langtest.h"
#include "code/code.h"

namespace vexor::test {

class CodeTest : public FrontEnd {
 protected:
  void SetUp() override {
    freecode();
    FrontEnd::SetUp();
  }
  void TearDown() override {
    freecode();
    FrontEnd::TearDown();
  }
  static void freecode() {
    freeallnodes();
    freeopsegs();
  }
};

}  // namespace vexor::test
