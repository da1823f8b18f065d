// The code segment: instruction slots in chained blocks.
#include <vector>

#include "codetest.h"
#include "exec/exec.h"

namespace vexor::test {
namespace {

class CodeSegment : public CodeTest {
 protected:
  void SetUp() override {
    CodeTest::SetUp();
    progstart = emitpos = newopseg();
    opcount = 0;
  }
  // Follows the slots from the program start as the interpreter does:
  // an OP_JUMP continues at its target, anything else at the next slot.
  // Returns the operand1 values of the OP_EVAL instructions met, up to the
  // first OP_STOP.
  std::vector<long> run() {
    std::vector<long> seen;
    OpInstr* pc = progstart;
    for (int steps = 0; steps < 100000; ++steps) {
      if (pc->opcode == OP_STOP) break;
      if (pc->opcode == OP_JUMP) {
        pc = static_cast<OpInstr*>(pc->operand1);
        continue;
      }
      if (pc->opcode == OP_EVAL) seen.push_back(reinterpret_cast<long>(pc->operand1));
      ++pc;
    }
    return seen;
  }
  static void* tag(long i) { return reinterpret_cast<void*>(i); }
};

TEST_F(CodeSegment, OpcodeValues) {
  EXPECT_EQ(OP_JUMPF, 2);
  EXPECT_EQ(OP_JUMP, 3);
  EXPECT_EQ(OP_LINE, 5);
  EXPECT_EQ(OP_STOP, 6);
  EXPECT_EQ(OP_EVAL, 19);
  EXPECT_EQ(OP_FUNCTION, 20);
  EXPECT_EQ(OPSEGSIZE, 500);
}

TEST_F(CodeSegment, EmitopFillsSlotsInOrder) {
  OpInstr* a = emitop(OP_LINE, tag(7), nullptr);
  OpInstr* b = emitop(OP_EVAL, tag(8), tag(9));
  EXPECT_EQ(a, progstart);
  EXPECT_EQ(b, progstart + 1);
  EXPECT_EQ(emitpos, progstart + 2);
  EXPECT_EQ(b->opcode, OP_EVAL);
  EXPECT_EQ(b->operand1, tag(8));
  EXPECT_EQ(b->operand2, tag(9));
  EXPECT_EQ(opcount, 2);
  EXPECT_STREQ(memtag(progstart), "opcodes");
  EXPECT_STREQ(memtag(opseghead), "opseg");
}

TEST_F(CodeSegment, FourHundredNinetyNineInstructionsFillOneBlock) {
  OpInstr* first = progstart;
  for (long i = 1; i <= 499; ++i) emitop(OP_EVAL, tag(i), nullptr);
  // The 500th slot holds the linking jump to the second block.
  ASSERT_NE(opseghead->next, nullptr);
  OpInstr* second = opseghead->next->block;
  EXPECT_EQ(first[499].opcode, OP_JUMP);
  EXPECT_EQ(first[499].operand1, second);
  EXPECT_EQ(first[499].operand2, nullptr);
  EXPECT_EQ(emitpos, second);
  EXPECT_EQ(opcount, 0);
  // The 500th emitted instruction lands in slot 1 of the second block.
  OpInstr* s500 = emitop(OP_EVAL, tag(500), nullptr);
  EXPECT_EQ(s500, second);
  emitop(OP_STOP, nullptr, nullptr);
  // Execution flows through the linking jump unchanged.
  std::vector<long> seen = run();
  ASSERT_EQ(seen.size(), 500u);
  for (long i = 0; i < 500; ++i) EXPECT_EQ(seen[i], i + 1);
}

// The same through the interpreter: 499 instructions "w++" fill the first
// block; the 500th, the FUNCTION statement "w * 2", stands in the second
// block, so the run must pass the linking jump.
TEST_F(CodeSegment, TheInterpreterFlowsThroughTheLinkingJump) {
  symbuiltins();
  Symbol* w = symnew("w", SYM_WORK);
  srclist = 0;
  for (int i = 1; i <= 500; ++i) {
    freetoks();
    srcset(i < 500 ? "w++;\n" : "w * 2;\n");
    ExprNode* t = parseexpr(1, 1);
    ASSERT_NE(t, nullptr);
    OpInstr* slot = i < 500 ? emitop(OP_EVAL, t, nullptr) : emitop(OP_FUNCTION, nullptr, t);
    if (i == 500) {
      EXPECT_EQ(slot, opseghead->next->block);
    }
  }
  emitop(OP_STOP, nullptr, nullptr);
  computing = 0;
  resetwork();
  w->value = 0.0;
  double predicted = 0.0, observed = -1.0;
  EXPECT_EQ(runprog(0, nullptr, &predicted, &observed), 1);
  EXPECT_EQ(w->value, 499.0);
  EXPECT_EQ(predicted, 998.0);
  EXPECT_EQ(listing(), "");
}

TEST_F(CodeSegment, InvalidOpcodeStopsTheRunAtItsSlot) {
  symbuiltins();
  Symbol* w = symnew("w", SYM_WORK);
  srclist = 0;
  srcset("w = 7.25;\nw = 1;\n");
  ExprNode* first = parseexpr(1, 0);
  freetok(gettok());
  ExprNode* second = parseexpr(1, 0);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  emitop(OP_EVAL, first, nullptr);
  emitop(4, nullptr, nullptr);
  emitop(OP_EVAL, second, nullptr);  // never reached
  emitop(OP_STOP, nullptr, nullptr);
  computing = 0;
  resetwork();
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(w->value, 7.25);
  EXPECT_NE(listing().find("Error: Invalid opcode in generated code: 4"), std::string::npos)
      << listing();
}

TEST_F(CodeSegment, ManyBlocksChain) {
  for (long i = 1; i <= 2000; ++i) emitop(OP_EVAL, tag(i), nullptr);
  emitop(OP_STOP, nullptr, nullptr);
  int blocks = 0;
  for (OpSeg* s = opseghead; s; s = s->next) ++blocks;
  EXPECT_EQ(blocks, 5);  // 4 full blocks of 499, then 4 instructions + STOP
  EXPECT_EQ(opsegtail->next, nullptr);
  std::vector<long> seen = run();
  ASSERT_EQ(seen.size(), 2000u);
  EXPECT_EQ(seen.back(), 2000);
}

TEST_F(CodeSegment, BackwardJumpAcrossBlocksGoesDirectlyToTheLoopTop) {
  for (long i = 0; i < 10; ++i) emitop(OP_EVAL, tag(i), nullptr);
  OpInstr* top = emitop(OP_LINE, nullptr, nullptr);
  for (long i = 0; i < 700; ++i) emitop(OP_EVAL, tag(i), nullptr);
  OpInstr* back = emitop(OP_JUMP, top, nullptr);
  EXPECT_GE(back, opseghead->next->block);
  EXPECT_LT(back, opseghead->next->block + OPSEGSIZE);
  EXPECT_EQ(back->operand1, top);
  EXPECT_EQ(top, opseghead->block + 10);
  // A jump emitted with no target yet is patched through its slot later.
  OpInstr* pending = emitop(OP_JUMPF, tag(1), nullptr);
  for (long i = 0; i < 600; ++i) emitop(OP_EVAL, tag(i), nullptr);
  pending->operand2 = emitpos;
  EXPECT_EQ(pending->operand2, emitpos);
  EXPECT_EQ(pending->opcode, OP_JUMPF);
}

TEST_F(CodeSegment, FreeopsegsFreesTheChain) {
  for (long i = 0; i < 1500; ++i) emitop(OP_EVAL, tag(i), nullptr);
  freeopsegs();
  EXPECT_EQ(opseghead, nullptr);
  EXPECT_EQ(opsegtail, nullptr);
  EXPECT_EQ(progstart, nullptr);
  EXPECT_EQ(emitpos, nullptr);
  EXPECT_EQ(memlivecount(), baseline);
}

TEST_F(CodeSegment, EmitWithoutAFrameOpensOne) {
  freeopsegs();
  OpInstr* s = emitop(OP_STOP, nullptr, nullptr);
  EXPECT_EQ(s, progstart);
  EXPECT_EQ(s->opcode, OP_STOP);
}

TEST_F(CodeSegment, NodeKindValues) {
  const int table[][2] = {
      {EN_WORD, 1},       {EN_VARIABLE, 2},   {EN_CONSTANT, 3},   {EN_CALL, 4},
      {EN_ADD, 5},        {EN_SUB, 6},        {EN_MUL, 7},        {EN_DIV, 8},
      {EN_MOD, 9},        {EN_POW, 10},       {EN_COMMA, 11},     {EN_LPAREN, 12},
      {EN_RPAREN, 13},    {EN_NEGATE, 14},    {EN_END, 15},       {EN_LT, 16},
      {EN_LE, 17},        {EN_GT, 18},        {EN_GE, 19},        {EN_EQ, 20},
      {EN_NE, 21},        {EN_AND, 22},       {EN_OR, 23},        {EN_NOT, 24},
      {EN_ASSIGN, 25},    {EN_ADDASSIGN, 26}, {EN_MULASSIGN, 27}, {EN_DIVASSIGN, 28},
      {EN_SUBASSIGN, 29}, {EN_PREINC, 30},    {EN_PREDEC, 31},    {EN_POSTINC, 32},
      {EN_POSTDEC, 33},   {EN_STRING, 34},    {EN_ELEMENT, 35},   {EN_LBRACKET, 36},
      {EN_RBRACKET, 37},  {EN_COND, 38},      {EN_COLON, 39},
  };
  ASSERT_EQ(sizeof table / sizeof table[0], 39u);
  for (const auto& k : table) EXPECT_EQ(k[0], k[1]);
  EXPECT_EQ(ENF_NOFOLD, 1);
  EXPECT_EQ(ENF_STRINGS, 2);
  EXPECT_EQ(ENF_TARGET, 4);
  EXPECT_EQ(ENF_SPARE, 8);
}

// Nodes come zero-filled from chunks of 512 (one allocator block each), go
// back to a free list when freed, and the chunks return to the allocator
// once no node is live.
TEST_F(CodeSegment, NodesComeFromChunksAndAreFreedTogether) {
  const long blocks = memlivecount();
  ExprNode* a = newnode();
  ExprNode* b = newnode();
  EXPECT_EQ(memlivecount(), blocks + 1);  // one chunk
  EXPECT_EQ(a->kind, 0);
  EXPECT_EQ(livenodes, b);
  a->left = newnode();
  a->left->text = static_cast<char*>(memalloc(4, "listr"));
  a->left->kind = EN_STRING;
  freetree(a);  // the string text goes with its node
  EXPECT_EQ(livenodes, b);
  EXPECT_EQ(memlivecount(), blocks + 1);
  ExprNode* c = newnode();  // from the free list, zero-filled again
  EXPECT_EQ(c->kind, 0);
  EXPECT_EQ(c->left, nullptr);
  for (int i = 0; i < 600; ++i) newnode();
  EXPECT_EQ(memlivecount(), blocks + 2);  // a second chunk
  freeallnodes();
  EXPECT_EQ(livenodes, nullptr);
  EXPECT_EQ(memlivecount(), blocks);
}

}  // namespace
}  // namespace vexor::test
