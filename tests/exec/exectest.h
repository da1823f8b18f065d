// Helpers of the execution tests: building expression trees and calls by
// hand, reading the listing, and a clean run state for every test.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>

#include "exec/exec.h"
#include "kit/kit.h"

namespace vexor::test {

// The Listing as stored (CR LF line ends).
inline std::string listing() { return kit::listing(true); }

inline ExprNode* num(double v) {
  ExprNode* n = newnode();
  n->kind = EN_CONSTANT;
  n->value = v;
  return n;
}

inline ExprNode* var(Symbol* s) {
  ExprNode* n = newnode();
  n->kind = EN_VARIABLE;
  n->symbol = s;
  return n;
}

inline ExprNode* target(Symbol* s) {
  ExprNode* n = var(s);
  n->flags |= ENF_TARGET;
  return n;
}

inline ExprNode* op(uint8_t kind, ExprNode* l, ExprNode* r) {
  ExprNode* n = newnode();
  n->kind = kind;
  n->left = l;
  n->right = r;
  return n;
}

inline ExprNode* str(const char* text) {
  ExprNode* n = newnode();
  n->kind = EN_STRING;
  std::size_t len = std::strlen(text);
  n->text = static_cast<char*>(memalloc(len + 1, "tokstr"));
  std::memcpy(n->text, text, len + 1);
  return n;
}

// A call of the function of the given code (flags taken from its first row
// in the table) with the given argument nodes.
inline ExprNode* call(uint8_t code, std::initializer_list<ExprNode*> args) {
  ExprNode* n = newnode();
  n->kind = EN_CALL;
  n->funcode = code;
  for (const FuncEntry& f : functable)
    if (f.code == code) {
      n->flags = f.flags;
      break;
    }
  ExprNode** link = &n->firstarg;
  for (ExprNode* a : args) {
    *link = a;
    link = &a->nextarg;
  }
  return n;
}

// The value a run-time call of the function yields for constant arguments.
inline double runcall(uint8_t code, std::initializer_list<double> values) {
  ExprNode* n = newnode();
  n->kind = EN_CALL;
  n->funcode = code;
  ExprNode** link = &n->firstarg;
  for (double v : values) {
    ExprNode* a = num(v);
    *link = a;
    link = &a->nextarg;
  }
  double r = evalexpr(n);
  freetree(n);
  return r;
}

// A fresh engine state for each test.
class ExecTest : public ::testing::Test {
 protected:
  void SetUp() override {
    lstclear();
    degrees = 0;
    computing = 0;
    abortflag = 0;
    abortreported = 0;
    traceflag = 0;
    errflag = stopflag = funcexec = 0;
    runline = nullptr;
    outfp = nullptr;
  }
  void TearDown() override {
    freeallnodes();
    degrees = 0;
    lstclear();
  }
};

}  // namespace vexor::test
