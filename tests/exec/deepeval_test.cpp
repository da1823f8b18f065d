// The explicit-stack evaluator of high trees (evaldeep) against the
// recursive one (evalnode): on random trees higher than SHALLOWTREE, made of
// every kind of node a program can hold (assignments, ++ and --, elements
// with subscripts of both ranks, calls, conditionals, failing operations),
// both give the same value, leave the same variables and array elements,
// and write the same run-time messages in the same order.  And trees far
// too high for any recursion (a sum of 150,000 terms, a chain of as many
// conditionals) evaluate at run time.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "exec/evaltree.h"
#include "runtest.h"

namespace vexor::test {
namespace {

class DeepEval : public RunTest {
 protected:
  uint32_t state = 12345;
  uint32_t rnd(uint32_t n) {
    state = state * 1664525u + 1013904223u;
    return (state >> 8) % n;
  }

  // A random operand: small subtrees of every kind.
  std::string atom(int depth) {
    if (depth <= 0) {
      switch (rnd(6)) {
        case 0: return "x";
        case 1: return "w";
        case 2: return std::to_string(rnd(7)) + ".385";
        case 3: return "v[" + std::to_string(rnd(5)) + "]";
        case 4: return "m[1, " + std::to_string(rnd(3)) + "]";
        default: return "i";
      }
    }
    const std::string a = atom(depth - 1), b = atom(depth - 1);
    switch (rnd(16)) {
      case 0: return "(" + a + " + " + b + ")";
      case 1: return "(" + a + " * " + b + ")";
      case 2: return "(" + a + " / (x + " + b + "))";  // by zero now and then, at run time
      case 3: return "(" + a + " - " + b + ")";
      case 4: return "(" + a + " ^ 2)";
      case 5: return "(w = " + a + ")";
      case 6: return "(w += " + b + ")";
      case 7: return "(i++)";
      case 8: return "(--i)";
      case 9: return "v[i % 5]";
      case 10: return "v[(i = i + 1) % 5]";  // a subscript with an effect
      case 11: return "(" + a + " < " + b + " ? " + a + " : " + b + ")";
      case 12: return "MAX(" + a + ", " + b + ")";
      case 13: return "SQRT(x + " + a + ")";   // fails for a negative argument
      case 14: return "(v[i % 5] = " + a + ")";
      default: return "(" + a + " && " + b + ")";
    }
  }

  // A left-deep chain of `terms` random operands, so that the tree is
  // higher than SHALLOWTREE (each "+" or "-" adds a level; a "*" groups).
  std::string expression(int terms) {
    std::string e = atom(2);
    for (int k = 1; k < terms; ++k) {
      static const char* const ops[] = {" + ", " - ", " * "};
      e += ops[rnd(3)] + atom(rnd(3));
      if (k % 20 == 0) e += "\n";
    }
    return e;
  }

  struct State {
    double w, i, x;
    double v[5];
    double m[12];
    std::string listing;
  };
  State snapshot() {
    State s{};
    s.w = symfind("w")->value;
    s.i = symfind("i")->value;
    s.x = symfind("x")->value;
    std::memcpy(s.v, symfind("v")->elems, sizeof s.v);
    std::memcpy(s.m, symfind("m")->elems, sizeof s.m);
    s.listing = listing();
    return s;
  }
  void start() {
    resetwork();
    symfind("x")->value = -1.25;
    lstclear();
    errflag = stopflag = 0;
  }
};

TEST_F(DeepEval, AgreesWithTheRecursiveEvaluator) {
  int withmessages = 0, finite = 0;
  for (int round = 0; round < 40; ++round) {
    const std::string expr = expression(600 + static_cast<int>(rnd(200)));
    const std::string prog =
        "VARIABLES x, y;\nPARAMETERS a;\nDOUBLE w = 0.5, i = 2, v[5] = {1, -2, 3.5, 0, 7}, m[3, 3];\n"
        "z = " + expr + ";\nFUNCTION y = a*x;\n";
    ASSERT_TRUE(build(("DOUBLE z;\n" + prog).c_str())) << prog.substr(0, 300);
    // The tree of "z = ..." (the first OP_EVAL).
    ExprNode* tree = nullptr;
    for (OpInstr* p = progstart; p && p->opcode != OP_STOP; ++p)
      if (p->opcode == OP_EVAL) {
        tree = static_cast<ExprNode*>(p->operand1);
        break;
      }
    ASSERT_NE(tree, nullptr);
    ASSERT_GT(tree->height, SHALLOWTREE) << round;
    start();
    const double deep = evaldeep(tree);
    const State a = snapshot();
    start();
    const double rec = evalnode(tree);
    const State b = snapshot();
    EXPECT_EQ(std::memcmp(&deep, &rec, sizeof deep), 0) << round << ": " << deep << " vs " << rec;
    EXPECT_EQ(std::memcmp(&a, &b, offsetof(State, listing)), 0) << round;
    EXPECT_EQ(a.listing, b.listing) << round;
    if (!a.listing.empty()) ++withmessages;
    if (std::isfinite(deep)) ++finite;
    freeall();
  }
  // The random trees do meet run-time errors, and do not all end in them.
  EXPECT_GT(withmessages, 0);
  EXPECT_GT(finite, 0);
  std::printf("%d of 40 trees with run-time messages, %d with a finite value\n", withmessages, finite);
}

// A model whose FUNCTION is a sum of 150,000 terms and a chain of as many
// conditionals: far beyond any recursion, evaluated at run time.
TEST_F(DeepEval, TreesFarTooHighForRecursionRunAtRunTime) {
  std::string sum = "x", chain;
  for (int k = 1; k < 150000; ++k) sum += k % 100 ? " + x" : " + x\n";
  for (int k = 0; k < 150000; ++k) chain += (k % 50 == 49) ? "x > 5 ? 1 :\n" : "x > 5 ? 1 : ";
  const std::string prog = "VARIABLES x, y;\nPARAMETERS a;\nDOUBLE s, c;\ns = " + sum + ";\nc = " +
                           chain + "2;\nFUNCTION y = a*s + c;\nDATA;\n1.5 2\n";
  ASSERT_TRUE(build(prog.c_str()));
  parms[0]->value = 1.0;
  double p = 0.0, o = 0.0;
  ASSERT_EQ(runprog(0, nullptr, &p, &o), 1) << listing();
  EXPECT_EQ(p, 150000 * 1.5 + 2.0);
}

}  // namespace
}  // namespace vexor::test
