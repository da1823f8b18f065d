// Expressions and code: the instruction record and the chained code blocks,
// the expression-node record, the expression parser that builds trees from
// the statement lexer's tokens, and the constant folder.
#pragma once

#include <cstdint>
#include <cstdio>

#include "builtins/builtins.h"
#include "lang/lang.h"

namespace vexor {

// ---------------------------------------------------------------------------
// Instructions (ORDER OP: the values are fixed)
// ---------------------------------------------------------------------------
enum : uint8_t {
  OP_JUMPF = 2,     // operand1 condition tree; operand2 target slot
  OP_JUMP = 3,      // operand1 target slot; operand2 BREAK/CONTINUE chain link
  OP_LINE = 5,      // operand1 SourceLine*
  OP_STOP = 6,
  OP_EVAL = 19,     // operand1 tree
  OP_FUNCTION = 20, // operand1 dependent Symbol* or null; operand2 tree
};

struct OpInstr {
  uint8_t opcode;
  void* operand1;
  void* operand2;
};

inline constexpr int OPSEGSIZE = 500;  // slots per code block

struct OpSeg {
  OpSeg* next;
  OpInstr* block;  // OPSEGSIZE slots (tag "opcodes")
};

extern OpSeg* opseghead;
extern OpSeg* opsegtail;
extern OpInstr* progstart;  // first slot of the program
extern OpInstr* emitpos;    // next free slot
extern int32_t opcount;     // instructions in the current block

OpInstr* emitop(uint8_t opcode, void* operand1, void* operand2);
OpInstr* newopseg();
void freeopsegs();

// ---------------------------------------------------------------------------
// Expression nodes (ORDER EN: the values are fixed)
// ---------------------------------------------------------------------------
enum : uint8_t {
  EN_WORD = 1,
  EN_VARIABLE = 2,
  EN_CONSTANT = 3,
  EN_CALL = 4,
  EN_ADD = 5,
  EN_SUB = 6,
  EN_MUL = 7,
  EN_DIV = 8,
  EN_MOD = 9,
  EN_POW = 10,
  EN_COMMA = 11,
  EN_LPAREN = 12,
  EN_RPAREN = 13,
  EN_NEGATE = 14,
  EN_END = 15,
  EN_LT = 16,
  EN_LE = 17,
  EN_GT = 18,
  EN_GE = 19,
  EN_EQ = 20,
  EN_NE = 21,
  EN_AND = 22,
  EN_OR = 23,
  EN_NOT = 24,
  EN_ASSIGN = 25,
  EN_ADDASSIGN = 26,
  EN_MULASSIGN = 27,
  EN_DIVASSIGN = 28,
  EN_SUBASSIGN = 29,
  EN_PREINC = 30,
  EN_PREDEC = 31,
  EN_POSTINC = 32,
  EN_POSTDEC = 33,
  EN_STRING = 34,
  EN_ELEMENT = 35,
  EN_LBRACKET = 36,
  EN_RBRACKET = 37,
  EN_COND = 38,
  EN_COLON = 39,
};

// Node flags.  A call copies its function's table flags (FNF_), whose bits
// these share.
enum : uint8_t {
  ENF_NOFOLD = FNF_NOFOLD,    // never folded (RANDOM, PRINTF, RETURN)
  ENF_STRINGS = FNF_STRINGS,  // the function accepts string arguments
  ENF_TARGET = 4,             // assignment target, not evaluated as an operand
  ENF_SPARE = FNF_SPARE,      // copied from the function table; set by no function
};

inline constexpr int MAXNODENAME = 32;

// One node per token of an expression (tag "tok", zero-filled).
struct ExprNode {
  ExprNode* prev;      // list of all live nodes
  ExprNode* next;
  ExprNode* left;      // first operand (++/-- target too)
  ExprNode* right;     // second operand; operand of unary - and !; subscript
  ExprNode* cond;      // condition of a ? b : c
  ExprNode* firstarg;  // call arguments
  ExprNode* nextarg;
  Token* token;        // the statement-level token it came from
  SourceLine* position;  // source position for compile errors
  Symbol* symbol;      // EN_VARIABLE, EN_ELEMENT
  char* text;          // EN_STRING (owned)
  double value;        // EN_CONSTANT
  uint8_t kind;        // EN_...
  uint8_t funcode;     // EN_CALL: built-in function code
  uint8_t flags;       // ENF_...
  char name[MAXNODENAME + 1];
  // Nodes from here to the deepest leaf (a leaf is 1), set for every node
  // of a tree that parseexpr returns; 0 in a tree built otherwise, which
  // counts as shallow.
  uint32_t height;
};

// Parses one expression from the statement lexer's next token.  allowlist:
// the top level may be a comma list; model: mark the symbols used as used in
// the FUNCTION statement.  Returns the folded tree, or null after an error.
ExprNode* parseexpr(int allowlist, int model);
ExprNode* nexttok();
void pushtok(ExprNode* node);
ExprNode* newnode();
void freenode(ExprNode* node);
void freeallnodes();
void freetree(ExprNode* tree);
void exprreset();  // forget the parser's pending state (engine reset)
void freeexprsince(ExprNode* mark);  // frees every node made after `mark`

// Every live node, newest first (the list of newnode).
extern ExprNode* livenodes;

// Limits of one expression.  Nothing that walks an expression recurses as
// deep as it nests (the parser, the folder, the dump, freetree and the
// interpreter's deep trees work on explicit stacks), so these only keep a
// hostile text from taking unbounded memory; beyond either the parser
// reports "Expression is too complex".
//   MAXEXPRNEST: levels of nesting, one for each parenthesis, function call
//     and subscript that encloses a point of the expression.
//   MAXEXPRHEIGHT: the height of the tree, counted in nodes from the root to
//     the deepest leaf (a lone constant has height 1); every operator of a
//     chain adds one level (a sum of n terms is n high).
inline constexpr int MAXEXPRNEST = 100000;
inline constexpr int MAXEXPRHEIGHT = 200000;

// A readable dump of the compiled program (see dump.cpp) and of one tree.
void dumpprog(FILE* f);

// Constant folding: returns the same root, changed in place where it folds.
ExprNode* foldexpr(ExprNode* node);
ExprNode* foldcall(ExprNode* call);
// Raises a compile error at the node and sets the expression error flag.
void exprerror(const ExprNode* node, const char* msg);
extern int exprerr;  // the expression error flag

}  // namespace vexor
