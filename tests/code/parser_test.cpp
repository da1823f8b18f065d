// The expression parser: tree shapes, name resolution, calls, and every
// compile error of an expression with its line.
#include <cmath>
#include <cstring>
#include <sstream>
#include <string>

#include "codetest.h"

namespace vexor::test {
namespace {

// The tree as an s-expression: (op left right), name[sub], NAME(args).
std::string shape(const ExprNode* n) {
  if (!n) return "null";
  std::ostringstream o;
  auto bin = [&](const char* op) {
    o << "(" << op << " " << shape(n->left) << " " << shape(n->right) << ")";
  };
  switch (n->kind) {
    case EN_CONSTANT: o.precision(17); o << n->value; break;
    case EN_VARIABLE: o << (n->symbol ? n->symbol->name : "?"); break;
    case EN_ELEMENT: o << (n->symbol ? n->symbol->name : "?") << "[" << shape(n->right) << "]"; break;
    case EN_STRING: o << '"' << (n->text ? n->text : "") << '"'; break;
    case EN_END: o << "END"; break;
    case EN_WORD: o << "WORD:" << n->name; break;
    case EN_CALL: {
      o << n->name << "(";
      for (const ExprNode* a = n->firstarg; a; a = a->nextarg) o << shape(a) << (a->nextarg ? " " : "");
      o << ")";
      break;
    }
    case EN_ADD: bin("+"); break;
    case EN_SUB: bin("-"); break;
    case EN_MUL: bin("*"); break;
    case EN_DIV: bin("/"); break;
    case EN_MOD: bin("%"); break;
    case EN_POW: bin("^"); break;
    case EN_COMMA: bin(","); break;
    case EN_LT: bin("<"); break;
    case EN_LE: bin("<="); break;
    case EN_GT: bin(">"); break;
    case EN_GE: bin(">="); break;
    case EN_EQ: bin("=="); break;
    case EN_NE: bin("!="); break;
    case EN_AND: bin("&&"); break;
    case EN_OR: bin("||"); break;
    case EN_ASSIGN: bin("="); break;
    case EN_ADDASSIGN: bin("+="); break;
    case EN_SUBASSIGN: bin("-="); break;
    case EN_MULASSIGN: bin("*="); break;
    case EN_DIVASSIGN: bin("/="); break;
    case EN_NEGATE: o << "(neg " << shape(n->right) << ")"; break;
    case EN_NOT: o << "(! " << shape(n->right) << ")"; break;
    case EN_PREINC: o << "(++x " << shape(n->left) << ")"; break;
    case EN_PREDEC: o << "(--x " << shape(n->left) << ")"; break;
    case EN_POSTINC: o << "(x++ " << shape(n->left) << ")"; break;
    case EN_POSTDEC: o << "(x-- " << shape(n->left) << ")"; break;
    case EN_COND: o << "(? " << shape(n->cond) << " " << shape(n->left) << " " << shape(n->right) << ")"; break;
    default: o << "kind" << int(n->kind); break;
  }
  return o.str();
}

class Parser : public CodeTest {
 protected:
  void SetUp() override {
    CodeTest::SetUp();
    srclist = 0;
    symbuiltins();
    x = symnew("x", SYM_INPUT);
    y = symnew("y", SYM_INPUT);
    a = parmnew("a");
    parmenter(a, nullptr);
    b = parmnew("b");
    parmenter(b, nullptr);
    w = symnew("w", SYM_WORK);
    v = symnew("v", SYM_WORK);
    c = symnew("c", SYM_CONST);
    c->value = c->initval = 2.5;
    arr = symnew("arr", SYM_WORK);
    arr->ndims = 1;
    arr->dim1 = arr->nelem = 4;
    arr->elems = static_cast<double*>(memcalloc(4 * sizeof(double), "ary"));
    m = symnew("m", SYM_WORK);
    m->ndims = 2;
    m->dim1 = m->dim2 = 3;
    m->nelem = 9;
    m->elems = static_cast<double*>(memcalloc(9 * sizeof(double), "ary"));
  }
  // Parses the first expression of `text` and returns its shape ("none"
  // when parseexpr gave no tree).
  std::string parse(const char* text, int allowlist = 1, int model = 0) {
    freetoks();  // as the engine cleanup does before a compilation
    srcset(text);
    tree = parseexpr(allowlist, model);
    return tree ? shape(tree) : "none";
  }
  // The tree of a text too deep for shape() (which recurses), or null.
  ExprNode* deep(const std::string& text) {
    freetoks();
    srcset(text.c_str());
    return tree = parseexpr(1, 0);
  }
  // The kind of the token the statement compiler would see next.
  int after() {
    Token* t = gettok();
    int k = t->kind;
    freetok(t);
    return k;
  }
  Symbol *x, *y, *a, *b, *w, *v, *c, *arr, *m;
  ExprNode* tree = nullptr;
};

// ---- shapes and precedence ------------------------------------------------

TEST_F(Parser, Precedence) {
  EXPECT_EQ(parse("w + v * x;"), "(+ w (* v x))");
  EXPECT_EQ(parse("w - v - x;"), "(- (- w v) x)");
  EXPECT_EQ(parse("w / v % x;"), "(% (/ w v) x)");
  EXPECT_EQ(parse("w ^ v ** x;"), "(^ w (^ v x))");
  EXPECT_EQ(parse("w < v == x > y;"), "(== (< w v) (> x y))");
  EXPECT_EQ(parse("w || v && x != y;"), "(|| w (&& v (!= x y)))");
  EXPECT_EQ(parse("w <= v + 1 >= x;"), "(>= (<= w (+ v 1)) x)");
  EXPECT_EQ(parse("(w + v) * x;"), "(* (+ w v) x)");
  EXPECT_EQ(after(), TK_SEMI);
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Parser, AssignmentIsRightToLeft) {
  EXPECT_EQ(parse("w = v = 3;"), "(= w (= v 3))");
  EXPECT_EQ(tree->left->flags & ENF_TARGET, ENF_TARGET);
  EXPECT_EQ(tree->right->left->flags & ENF_TARGET, ENF_TARGET);
  EXPECT_EQ(tree->right->right->flags & ENF_TARGET, 0);
  EXPECT_EQ(parse("w += 1;"), "(+= w 1)");
  EXPECT_EQ(parse("w -= 1;"), "(-= w 1)");
  EXPECT_EQ(parse("w *= 1;"), "(*= w 1)");
  EXPECT_EQ(parse("w /= 1;"), "(/= w 1)");
}

TEST_F(Parser, NotAnAssignmentLeavesTheEqualsSign) {
  EXPECT_EQ(parse("w + 1 = 3;"), "(+ w 1)");
  EXPECT_EQ(after(), TK_ASSIGN);
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Parser, UnaryMinusBindsTighterThanPower) {
  EXPECT_EQ(parse("-w^2;"), "(^ (neg w) 2)");
  EXPECT_EQ(parse("-2^2;"), "4");
  EXPECT_EQ(tree->kind, EN_CONSTANT);
  EXPECT_EQ(parse("2^-1;"), "0.5");
  EXPECT_EQ(parse("+w;"), "w");
  EXPECT_EQ(parse("!w;"), "(! w)");
  EXPECT_EQ(parse("-(-w);"), "(neg (neg w))");
}

TEST_F(Parser, OnlyOneUnaryOperatorBeforeAnOperand) {
  // The second "-" is a primary of its own, a leaf without operands; the
  // expression ends before "w", which goes back to the statement lexer.
  EXPECT_EQ(parse("- -w;"), "(neg (- null null))");
  EXPECT_EQ(ncomperr, 0);
  EXPECT_EQ(listing(), "");
  Token* t = gettok();
  EXPECT_EQ(t->kind, TK_NAME);
  EXPECT_STREQ(t->text, "w");
  freetok(t);
  EXPECT_EQ(parse("w = !-x;"), "(= w (! (- null null)))");
  EXPECT_EQ(after(), TK_NAME);
}

TEST_F(Parser, ParenthesesDoNotHoldAList) {
  EXPECT_EQ(parse("(w, v);"), "none");
  EXPECT_EQ(listing(), "     1: (w, v);\r\nError: Missing right parenthesis\r\n");
}

TEST_F(Parser, Lists) {
  EXPECT_EQ(parse("w = 1, v = 2, w;"), "(, (= w 1) (, (= v 2) w))");
  EXPECT_EQ(after(), TK_SEMI);
  EXPECT_EQ(parse("w = 1, v = 2;", 0), "(= w 1)");
  EXPECT_EQ(after(), TK_COMMA);
}

TEST_F(Parser, Conditional) {
  EXPECT_EQ(parse("w > 1 ? v : x;"), "(? (> w 1) v x)");
  EXPECT_EQ(parse("w ? v : x ? y : 1;"), "(? w v (? x y 1))");
  EXPECT_EQ(parse("1 ? 2 : 3;"), "2");
}

TEST_F(Parser, AmpersandAndBarAreLogicalOperators) {
  EXPECT_EQ(parse("w & v | x;"), "(|| (&& w v) x)");
  EXPECT_EQ(nerrors, 2);  // the lexer's "Invalid operator" messages
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Parser, IncrementAndDecrement) {
  EXPECT_EQ(parse("w++;"), "(x++ w)");
  EXPECT_EQ(tree->left->flags & ENF_TARGET, ENF_TARGET);
  EXPECT_EQ(parse("w--;"), "(x-- w)");
  EXPECT_EQ(parse("++w;"), "(++x w)");
  EXPECT_EQ(tree->left->flags & ENF_TARGET, ENF_TARGET);
  EXPECT_EQ(parse("--arr[1];"), "(--x arr[1])");
  EXPECT_EQ(parse("arr[2]++ + 1;"), "(+ (x++ arr[2]) 1)");
}

TEST_F(Parser, IncrementOfInputOrParameterIsAccepted) {
  EXPECT_EQ(parse("x++;"), "(x++ x)");
  EXPECT_EQ(parse("++a;"), "(++x a)");
  EXPECT_EQ(parse("--b;"), "(--x b)");
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Parser, IncrementOfAConstantIsInvalid) {
  EXPECT_EQ(parse("++c;"), "none");
  EXPECT_EQ(listing(), "     1: ++c;\r\nError: Invalid use of ++ operator\r\n");
  lstclear();
  EXPECT_EQ(parse("3--;"), "none");
  EXPECT_EQ(listing(), "     1: 3--;\r\nError: Invalid use of -- operator\r\n");
  lstclear();
  EXPECT_EQ(parse("++(w);"), "none");
  EXPECT_EQ(listing(), "     1: ++(w);\r\nError: Invalid use of ++ operator\r\n");
}

TEST_F(Parser, AssigningInputsOrParametersIsAnError) {
  EXPECT_EQ(parse("x = 1;"), "none");
  EXPECT_EQ(listing(), "     1: x = 1;\r\nError: Input variables may not be assigned values\r\n");
  lstclear();
  EXPECT_EQ(parse("a += 1;"), "none");
  EXPECT_EQ(listing(), "     1: a += 1;\r\nError: Parameters may not be assigned values\r\n");
  EXPECT_EQ(ncomperr, 2);
}

TEST_F(Parser, MissingOperands) {
  EXPECT_EQ(parse("w = ;"), "none");
  EXPECT_EQ(listing(), "     1: w = ;\r\nError: Invalid syntax\r\n");
  EXPECT_EQ(after(), TK_SEMI);  // the ";" is back in the lexer
  lstclear();
  EXPECT_EQ(parse("w + ;"), "none");
  EXPECT_EQ(listing(), "     1: w + ;\r\nError: Syntax error\r\n");
  lstclear();
  EXPECT_EQ(parse("w ^ ;"), "none");
  EXPECT_EQ(listing(), "     1: w ^ ;\r\nError: Syntax error\r\n");
  lstclear();
  EXPECT_EQ(parse("w ? ;"), "none");
  EXPECT_EQ(listing(), "     1: w ? ;\r\nError: Syntax error\r\n");
  lstclear();
  EXPECT_EQ(parse("w ? 1 2;"), "none");
  EXPECT_EQ(listing(), "     1: w ? 1 2;\r\nError: Syntax error\r\n");
  lstclear();
  EXPECT_EQ(parse("w ? 1 : ;"), "none");
  EXPECT_EQ(listing(), "     1: w ? 1 : ;\r\nError: Syntax error\r\n");
}

TEST_F(Parser, AnyOtherPrimaryIsTheNodeItself) {
  // An operator, comma, bracket or colon where an operand belongs stands
  // for itself, as a leaf without operands; the parse goes on after it.
  // Nothing is reported here: what follows is the statement compiler's.
  struct Case {
    const char* text;
    const char* shape;
    int next;  // the token the statement compiler sees next
  };
  const Case cases[] = {
      {"w = ,;", "(= w (, null null))", TK_SEMI},
      {"w = * 2;", "(= w (* null null))", TK_NUMBER},
      {"w + [;", "(+ w kind36)", TK_SEMI},
      {"w = ];", "(= w kind37)", TK_SEMI},
      {"w = :;", "(= w kind39)", TK_SEMI},
      {"w = ?;", "(= w (? null null null))", TK_SEMI},
      {"w = =;", "(= w (= null null))", TK_SEMI},
      {"-++w;", "(neg (++x null))", TK_NAME},
      {"w = -;", "(= w (neg END))", TK_SEMI},
      {"1 + *;", "(+ 1 (* null null))", TK_SEMI},  // not folded: "*" is no constant
  };
  for (const Case& c : cases) {
    EXPECT_EQ(parse(c.text), c.shape) << c.text;
    EXPECT_EQ(after(), c.next) << c.text;
  }
  EXPECT_EQ(ncomperr, 0);
  EXPECT_EQ(listing(), "");
}

TEST_F(Parser, LeafOperandsInCalls) {
  // PRINTF takes any number of arguments: the lone "," is one of them.
  EXPECT_EQ(parse("w = PRINTF(\"%lf\",,v);"), "(= w PRINTF(\"%lf\" (, null null) v))");
  EXPECT_EQ(after(), TK_SEMI);
  EXPECT_EQ(ncomperr, 0);
  // The first comma of a pair is the optional separator, the second an
  // argument; a counted function counts it.
  EXPECT_EQ(parse("w = SIN(,,);"), "(= w SIN((, null null)))");
  EXPECT_EQ(parse("w = SIN(v,,);"), "none");
  EXPECT_EQ(listing(), "     1: w = SIN(v,,);\r\nError: Incorrect number of arguments for function\r\n");
}

TEST_F(Parser, EmptyExpressionIsTheEndNode) {
  EXPECT_EQ(parse(" x;", 0, 0) , "x");
  EXPECT_EQ(after(), TK_SEMI);
  EXPECT_EQ(parse("w;;"), "w");  // the second ";" alone is a blank piece, dropped
  EXPECT_EQ(after(), TK_SEMI);
  EXPECT_EQ(after(), TK_EOF);
  EXPECT_EQ(parse("w { ;\n"), "w");
  EXPECT_EQ(after(), TK_LBRACE);
  tree = parseexpr(1, 0);  // at the ";": nothing of an expression
  EXPECT_EQ(shape(tree), "END");
  EXPECT_EQ(after(), TK_SEMI);
  EXPECT_EQ(parse(")\n"), "END");
  EXPECT_EQ(after(), TK_RPAREN);
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Parser, TheFirstTokenAfterTheExpressionGoesBack) {
  EXPECT_EQ(parse("w > 1) {\n"), "(> w 1)");
  EXPECT_EQ(after(), TK_RPAREN);
  EXPECT_EQ(after(), TK_LBRACE);
  EXPECT_EQ(parse("w while\n"), "w");
  Token* t = gettok();
  EXPECT_EQ(t->kind, TK_KEYWORD);
  EXPECT_EQ(t->keyword, KW_WHILE);
}

// ---- names ----------------------------------------------------------------

TEST_F(Parser, NamesResolve) {
  EXPECT_EQ(parse("c * 2;"), "5");  // a CONSTANT is its value
  EXPECT_EQ(parse("obs + PREDICTED + residual;"), "(+ (+ Obs Predicted) Residual)");
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Parser, UsageFlags) {
  parse("w + c;", 1, 0);
  EXPECT_EQ(w->flags, SYMF_USED);
  EXPECT_EQ(c->flags, SYMF_USED);
  EXPECT_EQ(v->flags, 0);
  parse("v * a;", 1, 1);
  EXPECT_EQ(v->flags, SYMF_USED | SYMF_INMODEL);
  EXPECT_EQ(a->flags, SYMF_USED | SYMF_INMODEL);
  EXPECT_EQ(w->flags, SYMF_USED);
}

TEST_F(Parser, Pi) {
  EXPECT_EQ(parse("PI*2;"), "6.2831853071795862");
  EXPECT_EQ(tree->value, 6.283185307179586);
  EXPECT_EQ(parse("pi;"), "3.1415926535897931");
}

TEST_F(Parser, PiIsTheConstantEvenWhenAVariableHasItsName) {
  symnew("Pi", SYM_WORK);
  EXPECT_EQ(parse("PI;"), "3.1415926535897931");
}

TEST_F(Parser, AConstantNamedPiKeepsItsValue) {
  Symbol* p = symnew("PI", SYM_CONST);
  p->value = p->initval = 3.0;
  EXPECT_EQ(parse("pi * 2;"), "6");
}

TEST_F(Parser, UnknownName) {
  EXPECT_EQ(parse("w + zz;"), "none");
  EXPECT_EQ(listing(), "     1: w + zz;\r\nError: Unrecognized word or variable: zz\r\n");
}

TEST_F(Parser, ErrorsNameTheirLine) {
  EXPECT_EQ(parse("w = 1;\nv = 2 +\n   zz;\n"), "(= w 1)");
  after();
  tree = parseexpr(1, 0);
  EXPECT_EQ(tree, nullptr);
  EXPECT_EQ(listing(), "     3: zz;\r\nError: Unrecognized word or variable: zz\r\n");
}

// ---- subscripts -----------------------------------------------------------

TEST_F(Parser, Subscripts) {
  EXPECT_EQ(parse("arr[w + 1];"), "arr[(+ w 1)]");
  EXPECT_EQ(tree->kind, EN_ELEMENT);
  EXPECT_EQ(parse("m[1, w];"), "m[(, 1 w)]");
  EXPECT_EQ(parse("m[1, 2, 3];"), "m[(, 1 (, 2 3))]");  // accepted
  EXPECT_EQ(parse("w[1];"), "w[1]");  // a scalar with a subscript fails at run time
  EXPECT_EQ(parse("arr[1] = 2;"), "(= arr[1] 2)");
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Parser, SubscriptErrors) {
  EXPECT_EQ(parse("arr + 1;"), "none");
  EXPECT_EQ(listing(), "     1: arr + 1;\r\nError: Array variable does not have a subscript: arr\r\n");
  lstclear();
  EXPECT_EQ(parse("arr[1, 2];"), "none");
  EXPECT_EQ(listing(),
            "     1: arr[1, 2];\r\nError: Array variable should have only single subscript: arr\r\n");
  lstclear();
  EXPECT_EQ(parse("m[1];"), "none");
  EXPECT_EQ(listing(), "     1: m[1];\r\nError: Array variable should have two subscripts: m\r\n");
  lstclear();
  EXPECT_EQ(parse("arr[1;"), "none");
  EXPECT_EQ(listing(), "     1: arr[1;\r\nError: Missing right bracket for subscript\r\n");
  EXPECT_EQ(after(), TK_SEMI);
}

// ---- calls ----------------------------------------------------------------

TEST_F(Parser, Calls) {
  EXPECT_EQ(parse("sin(w);"), "SIN(w)");
  EXPECT_EQ(tree->kind, EN_CALL);
  EXPECT_EQ(tree->funcode, FN_SIN);
  EXPECT_EQ(parse("Max(w, v);"), "MAX(w v)");
  EXPECT_EQ(tree->funcode, FN_MAX);
  EXPECT_EQ(parse("max(1, 2);"), "2");  // folded
  EXPECT_EQ(parse("max(w, (v));"), "MAX(w v)");
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Parser, CommasBetweenArgumentsAreOptional) {
  EXPECT_EQ(parse("MAX(1 2);"), "2");
  EXPECT_EQ(parse("MAX(1, 2);"), "2");
  EXPECT_EQ(parse("MAX(w v);"), "MAX(w v)");
  EXPECT_EQ(parse("MAX(, w v);"), "MAX(w v)");
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Parser, WrongArgumentCount) {
  EXPECT_EQ(parse("SIN();"), "none");
  EXPECT_EQ(listing(), "     1: SIN();\r\nError: Incorrect number of arguments for function\r\n");
  lstclear();
  EXPECT_EQ(parse("atan(w, v);"), "none");
  EXPECT_EQ(listing(), "     1: atan(w, v);\r\nError: Incorrect number of arguments for function\r\n");
}

TEST_F(Parser, StringArguments) {
  EXPECT_EQ(parse("PRINTF(\"x=%lf\\n\", w);"), "PRINTF(\"x=%lf\n\" w)");
  EXPECT_EQ(tree->flags & (ENF_NOFOLD | ENF_STRINGS), ENF_NOFOLD | ENF_STRINGS);
  EXPECT_EQ(ncomperr, 0);
  EXPECT_EQ(parse("SQRT(\"a\");"), "none");
  EXPECT_EQ(listing(), "     1: SQRT(\"a\");\r\nError: Invalid argument to function\r\n");
}

TEST_F(Parser, NeverFoldedCall) {
  EXPECT_EQ(parse("RANDOM();"), "RANDOM()");
  EXPECT_EQ(tree->flags & ENF_NOFOLD, ENF_NOFOLD);
}

TEST_F(Parser, CallErrors) {
  EXPECT_EQ(parse("nosuch(1);"), "none");
  EXPECT_EQ(listing(), "     1: nosuch(1);\r\nError: Unrecognized function name: NOSUCH\r\n");
  lstclear();
  EXPECT_EQ(parse("sin(w;"), "none");
  EXPECT_EQ(listing(), "     1: sin(w;\r\nError: Missing right parenthesis\r\n");
  EXPECT_EQ(after(), TK_SEMI);
}

TEST_F(Parser, TheFunctionTableRowByRow) {
  struct Row {
    const char* name;
    int code;
    int nargs;
    int flags;  // 1: never folded, 2: accepts strings
  };
  const Row rows[] = {
      {"ABS", 6, 1, 0}, {"ACOS", 1, 1, 0}, {"ARCCOS", 1, 1, 0}, {"ASIN", 2, 1, 0},
      {"ARCSIN", 2, 1, 0}, {"ATAN", 3, 1, 0}, {"ARCTAN", 3, 1, 0}, {"BETAI", 41, 3, 0},
      {"CEIL", 55, 1, 0}, {"CHEBY", 34, 2, 0}, {"COS", 4, 1, 0}, {"COSH", 16, 1, 0},
      {"COT", 14, 1, 0}, {"CSC", 27, 1, 0}, {"CTOP", 52, 1, 0}, {"DEG", 12, 1, 0}, {"EI1", 37, 2, 0},
      {"EI2", 38, 2, 0}, {"EIC1", 39, 1, 0}, {"EIC2", 40, 1, 0}, {"ERF", 44, 1, 0}, {"EXP", 5, 1, 0},
      {"FABS", 6, 1, 0}, {"FAC", 35, 1, 0}, {"FLOOR", 54, 1, 0}, {"GAMMA", 24, 1, 0},
      {"GAMMAI", 25, 1, 0}, {"GAMMALN", 42, 1, 0}, {"GAMMP", 79, 2, 0}, {"HAV", 15, 1, 0},
      {"INT", 54, 1, 0}, {"J0", 28, 1, 0}, {"J1", 29, 1, 0}, {"JN", 30, 2, 0}, {"LN", 7, 1, 0},
      {"LOG", 7, 1, 0}, {"LOG10", 8, 1, 0}, {"LOG2", 45, 1, 0}, {"MAX", 20, 2, 0}, {"MIN", 21, 2, 0},
      {"MOD", 53, 2, 0}, {"NORMAL", 19, 1, 0}, {"NPD", 46, 3, 0}, {"PAREA", 43, 1, 0},
      {"PRINTF", 58, 255, 3}, {"PTOC", 51, 1, 0}, {"PTORX", 49, 2, 0}, {"PTORY", 50, 2, 0},
      {"PULSE", 23, 3, 0}, {"RAD", 13, 1, 0}, {"RANDOM", 57, 0, 1}, {"RETURN", 59, 255, 3},
      {"ROUND", 56, 1, 0}, {"RTOPA", 47, 2, 0}, {"RTOPD", 48, 2, 0}, {"SEC", 26, 1, 0},
      {"SEL", 36, 4, 0}, {"SIN", 9, 1, 0}, {"SINH", 17, 1, 0}, {"SQRT", 10, 1, 0},
      {"STEP", 22, 2, 0}, {"T", 34, 2, 0}, {"TAN", 11, 1, 0}, {"TANH", 18, 1, 0},
      {"ACOSD", 64, 1, 0}, {"ARCCOSD", 64, 1, 0}, {"ASIND", 65, 1, 0}, {"ARCSIND", 65, 1, 0},
      {"ATAND", 66, 1, 0}, {"ARCTAND", 66, 1, 0}, {"COSD", 67, 1, 0}, {"COTD", 70, 1, 0},
      {"CSCD", 73, 1, 0}, {"CTOPD", 78, 1, 0}, {"EI1D", 60, 2, 0}, {"EI2D", 61, 2, 0},
      {"EIC1D", 62, 1, 0}, {"EIC2D", 63, 1, 0}, {"HAVD", 71, 1, 0}, {"PTOCD", 77, 1, 0},
      {"PTORXD", 75, 2, 0}, {"PTORYD", 76, 2, 0}, {"RTOPAD", 74, 2, 0}, {"SECD", 72, 1, 0},
      {"SIND", 68, 1, 0}, {"TAND", 69, 1, 0}, {"Y0", 31, 1, 0}, {"Y1", 32, 1, 0}, {"YN", 33, 2, 0}
  };
  ASSERT_EQ(sizeof rows / sizeof rows[0], 89u);
  ASSERT_EQ(NFUNCS, 89);
  for (int i = 0; i < NFUNCS; ++i) {
    EXPECT_STREQ(functable[i].name, rows[i].name) << i;
    EXPECT_EQ(functable[i].code, rows[i].code) << rows[i].name;
    EXPECT_EQ(functable[i].nargs, rows[i].nargs) << rows[i].name;
    EXPECT_EQ(functable[i].flags, rows[i].flags) << rows[i].name;
  }
  EXPECT_EQ(VARARGS, 255);
  EXPECT_EQ(ENF_NOFOLD, 1);
  EXPECT_EQ(ENF_STRINGS, 2);
  EXPECT_EQ(ENF_TARGET, 4);
  EXPECT_EQ(ENF_SPARE, 8);
}

TEST_F(Parser, EveryBuiltinNameIsFound) {
  for (const FuncEntry& f : functable) {
    std::string text = std::string(f.name) + "(";
    int n = f.nargs == VARARGS ? 2 : f.nargs;
    for (int i = 0; i < n; ++i) text += i ? ", w" : "w";
    text += ");";
    if (std::string(f.name) == "PRINTF") text = "PRINTF(\"s\", w);";
    lstclear();
    std::string s = parse(text.c_str());
    EXPECT_EQ(s.substr(0, std::strlen(f.name)), f.name) << text << " " << listing();
    ASSERT_NE(tree, nullptr) << text;
    EXPECT_EQ(tree->funcode, f.code) << text;
  }
  EXPECT_EQ(ncomperr, 0);
}

// ---- limits -----------------------------------------------------------------

// n copies of `piece`.
std::string times(const std::string& piece, int n) {
  std::string r;
  for (int i = 0; i < n; ++i) r += piece;
  return r;
}

// n copies of piece, a line end after every 100 (a source line keeps 20000
// characters).
std::string lines(const std::string& piece, int n) {
  std::string r;
  for (int i = 0; i < n; ++i) {
    r += piece;
    if (i % 100 == 99) r += '\n';
  }
  return r;
}

// Parentheses, calls and subscripts nest up to MAXEXPRNEST levels (100,000)
// without recursion; one more level is "Expression is too complex".
TEST_F(Parser, NestingUpToTheLimit) {
  auto accepted = [&](const std::string& text) {
    lstclear();
    ncomperr = 0;
    EXPECT_NE(deep(text), nullptr) << text.substr(0, 60) << listing().substr(0, 400);
    EXPECT_EQ(ncomperr, 0);
  };
  auto rejected = [&](const std::string& text) {
    lstclear();
    ncomperr = 0;
    EXPECT_EQ(deep(text), nullptr) << text.substr(0, 60);
    EXPECT_EQ(ncomperr, 1);
    EXPECT_NE(listing().find("Error: Expression is too complex\r\n"), std::string::npos);
  };
  const int max = MAXEXPRNEST;
  accepted(lines("(", max) + "w" + lines(")", max) + ";\n");
  rejected(lines("(", max + 1) + "w" + lines(")", max + 1) + ";\n");
  accepted(lines("sin(", max) + "w" + lines(")", max) + ";\n");
  rejected(lines("sin(", max + 1) + "w" + lines(")", max + 1) + ";\n");
  accepted(lines("arr[", max) + "1" + lines("]", max) + ";\n");
  rejected(lines("arr[", max + 1) + "1" + lines("]", max + 1) + ";\n");
  accepted(lines("(sin(", max / 2) + "w" + lines("))", max / 2) + ";\n");
  rejected(lines("(sin(", max / 2) + "(w)" + lines("))", max / 2) + ";\n");
  // Each level counts once however it is written out.
  accepted(lines("( -(", max / 2) + "w" + lines("))", max / 2) + ";\n");
  // 250 levels, as generated models write them.
  accepted(times("(", 250) + "w" + times(")", 250) + ";\n");
}

TEST_F(Parser, TreesUpToTheHeightLimit) {
  auto height = [](const ExprNode* n) {
    int h = 0;
    // Down the longest path of these chains: left for sums, right for the
    // right-associative operators.
    while (n) {
      ++h;
      n = n->right && (n->kind == EN_POW || n->kind == EN_ASSIGN || n->kind == EN_COND)
              ? n->right
              : n->left;
    }
    return h;
  };
  struct Chain {
    std::string first, piece, last;
  };
  const Chain chains[] = {
      {"x", "+x", ""},           // a sum: one level per term
      {"x", "^x", ""},           // one level per "^"
      {"w", " = w", ""},         // one per "="
      {"", "x ? 1 : ", "2"},     // one per "?:"
  };
  for (const Chain& c : chains) {
    // MAXEXPRHEIGHT - 1 operators: that many operator nodes above one leaf.
    const int ops = MAXEXPRHEIGHT - 1;
    std::string text = c.first + lines(c.piece, ops) + c.last + ";\n";
    lstclear();
    ncomperr = 0;
    ASSERT_NE(deep(text), nullptr) << c.piece << listing().substr(0, 400);
    EXPECT_EQ(height(tree), MAXEXPRHEIGHT) << c.piece;
    EXPECT_EQ(tree->height, static_cast<uint32_t>(MAXEXPRHEIGHT)) << c.piece;
    text = c.first + lines(c.piece, ops + 1) + c.last + ";\n";
    EXPECT_EQ(deep(text), nullptr) << c.piece;
    EXPECT_EQ(ncomperr, 1) << c.piece;
    EXPECT_NE(listing().find("Error: Expression is too complex\r\n"), std::string::npos);
  }
}

// ---- the parser's own bookkeeping ---------------------------------------

TEST_F(Parser, AFailedParseLeavesNoNodes) {
  ExprNode* before = livenodes;
  EXPECT_EQ(parse("w + (v * sin(x, (y + zz))) ;"), "none");
  EXPECT_EQ(livenodes, before);
}

TEST_F(Parser, ASuccessfulParseKeepsOnlyItsTree) {
  ExprNode* before = livenodes;
  parse("(w + v) * sin(x) + -(+y) ;");
  int n = 0;
  for (ExprNode* p = livenodes; p != before; p = p->next) ++n;
  EXPECT_EQ(n, 9);  // + * + w v SIN x neg y
  EXPECT_EQ(tree->token, nullptr);  // positions are kept, tokens released
  EXPECT_NE(tree->position, nullptr);
}

TEST_F(Parser, SavingOverASavedNodeIsReported) {
  testing::internal::CaptureStdout();
  pushtok(newnode());
  pushtok(newnode());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "** Saving over saved token\n");
  exprreset();
}

TEST_F(Parser, NexttokConvertsTokens) {
  srcset("w 2.5 \"s\" + - * / % ^ ( ) [ ] , ? : < <= > >= == != && || ! = += -= *= /= ++ -- zz;\n");
  const int expect[] = {EN_VARIABLE, EN_CONSTANT, EN_STRING, EN_ADD, EN_SUB, EN_MUL, EN_DIV,
                        EN_MOD, EN_POW, EN_LPAREN, EN_RPAREN, EN_LBRACKET, EN_RBRACKET,
                        EN_COMMA, EN_COND, EN_COLON, EN_LT, EN_LE, EN_GT, EN_GE, EN_EQ, EN_NE,
                        EN_AND, EN_OR, EN_NOT, EN_ASSIGN, EN_ADDASSIGN, EN_SUBASSIGN,
                        EN_MULASSIGN, EN_DIVASSIGN, EN_PREINC, EN_PREDEC, EN_WORD, EN_END};
  for (int k : expect) {
    ExprNode* n = nexttok();
    EXPECT_EQ(n->kind, k);
    freenode(n);
  }
  EXPECT_EQ(after(), TK_SEMI);
}

}  // namespace
}  // namespace vexor::test
