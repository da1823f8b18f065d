// Hostile text for the lexer and the parser: random bytes, very long lines,
// names, numbers and strings, unbalanced and deeply nested brackets, and
// very long operator chains.  Nothing may crash, hang, overrun or leak (the
// fixture checks the allocator's live blocks after each test); the limits
// answer with "Expression is too complex".
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "codetest.h"

namespace vexor::test {
namespace {

// What every tree the parser hands out must be, however hostile the text:
// at most MAXEXPRHEIGHT high, free of the parse-only nodes that never stand
// for themselves (words, parentheses), its variables and elements resolved,
// and every operand that an assignment or an increment has a variable or an
// element marked as the target.  Operators without operands are allowed:
// a primary that is not an operand is a leaf of its own.
// (Walked on an explicit stack: the trees may be 100,000 levels deep.)
bool sound(const ExprNode* root) {
  std::vector<std::pair<const ExprNode*, int>> st{{root, 1}};
  while (!st.empty()) {
    auto [n, depth] = st.back();
    st.pop_back();
    if (!n) continue;
    if (depth > MAXEXPRHEIGHT) return false;
    switch (n->kind) {
      case EN_WORD: case EN_LPAREN: case EN_RPAREN: return false;
      case EN_VARIABLE: case EN_ELEMENT:
        if (!n->symbol) return false;
        break;
      case EN_ASSIGN: case EN_ADDASSIGN: case EN_SUBASSIGN: case EN_MULASSIGN:
      case EN_DIVASSIGN: case EN_PREINC: case EN_PREDEC: case EN_POSTINC: case EN_POSTDEC:
        if (n->left && (!(n->left->flags & ENF_TARGET) ||
                        (n->left->kind != EN_VARIABLE && n->left->kind != EN_ELEMENT)))
          return false;
        break;
      default:
        if (n->kind < EN_WORD || n->kind > EN_COLON) return false;
        break;
    }
    for (const ExprNode* a = n->firstarg; a; a = a->nextarg) st.push_back({a, depth + 1});
    st.push_back({n->cond, depth + 1});
    st.push_back({n->left, depth + 1});
    st.push_back({n->right, depth + 1});
  }
  return true;
}

class Hostile : public CodeTest {
 protected:
  void SetUp() override {
    CodeTest::SetUp();
    srclist = 1;
    symbuiltins();
    symnew("x", SYM_INPUT);
    parmenter(parmnew("a"), nullptr);
    symnew("w", SYM_WORK);
    Symbol* c = symnew("c", SYM_CONST);
    c->value = 1.25;
    Symbol* arr = symnew("arr", SYM_WORK);
    arr->ndims = 1;
    arr->dim1 = arr->nelem = 3;
    arr->elems = static_cast<double*>(memcalloc(3 * sizeof(double), "ary"));
  }

  // Drives the parser over the whole text as a statement loop would: one
  // expression, then one token dropped, until the end of the source.
  // Returns the number of trees made; every tree must be well formed.
  int parseall(const std::string& text) {
    freetoks();
    srcset(text.c_str());
    int trees = 0;
    for (long i = 0; i < 2000000; ++i) {
      ExprNode* t = parseexpr(1, 0);
      if (t) {
        if (t->kind != EN_END) ++trees;
        EXPECT_TRUE(sound(t)) << text.substr(0, 200);
        freetree(t);
      }
      // After an error the rest of the statement is dropped, up to and
      // including its ";"; otherwise the one token after the expression.
      for (;;) {
        Token* tok = gettok();
        int kind = tok->kind;
        freetok(tok);
        if (kind == TK_EOF) return trees;
        if (t || kind == TK_SEMI) break;
      }
    }
    ADD_FAILURE() << "the parser did not reach the end of the source";
    return trees;
  }

  int count(const std::string& what) {
    std::string l = listing();
    int n = 0;
    for (std::size_t p = l.find(what); p != std::string::npos; p = l.find(what, p + 1)) ++n;
    return n;
  }

  uint32_t state = 12345;
  uint32_t rnd() {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  }
};

TEST_F(Hostile, RandomBytes) {
  testing::internal::CaptureStdout();
  for (int round = 0; round < 300; ++round) {
    std::string text;
    int len = static_cast<int>(rnd() % 3000);
    for (int i = 0; i < len; ++i) text += static_cast<char>(1 + rnd() % 255);
    parseall(text);
    freeallnodes();
    freetoks();
    freelines();
    lstclear();
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout().find("** Saving over"), std::string::npos);
}

TEST_F(Hostile, RandomAsciiBytes) {
  testing::internal::CaptureStdout();
  for (int round = 0; round < 300; ++round) {
    std::string text;
    int len = static_cast<int>(rnd() % 3000);
    for (int i = 0; i < len; ++i) text += static_cast<char>(1 + rnd() % 127);
    parseall(text);
    freeallnodes();
    freetoks();
    freelines();
    lstclear();
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout().find("** Saving over"), std::string::npos);
}

TEST_F(Hostile, RandomTokenSoup) {
  const char* pieces[] = {"x", "a", "w", "c", "arr", "zz", "PI", "sin", "max", "printf",
                          "(", ")", "[", "]", "{", "}", ",", ";", "\n", "?", ":", "+",
                          "-", "*", "/", "%", "^", "**", "=", "+=", "-=", "*=", "/=",
                          "++", "--", "<", "<=", ">", ">=", "==", "!=", "!", "&&", "||",
                          "&", "|", "1", "2.5", "0", "1e3", "2:30", "\"s\"", " ", "if",
                          "/*", "*/", "//", "`", "@", "1.2.3", "\t"};
  const int npieces = sizeof pieces / sizeof pieces[0];
  testing::internal::CaptureStdout();
  int trees = 0;
  for (int round = 0; round < 400; ++round) {
    std::string text;
    int len = static_cast<int>(rnd() % 400);
    for (int i = 0; i < len; ++i) text += pieces[rnd() % npieces];
    text += "\n";
    trees += parseall(text);
    freeallnodes();
    freetoks();
    freelines();
    lstclear();
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout().find("** Saving over"), std::string::npos);
  EXPECT_GT(trees, 100);  // the soup does hold expressions
}

TEST_F(Hostile, VeryLongLinesNamesNumbersAndStrings) {
  std::string text = std::string(30000, 'n') + " = " + std::string(25000, '9') + "." +
                     std::string(25000, '1') + "e99999999999;\n";
  text += "w = \"" + std::string(40000, 's') + "\";\n";
  text += "w = " + std::string(60000, ' ') + "1;\n";
  text += std::string(70000, 'q') + "\n";
  parseall(text);
  EXPECT_GE(count("Unrecognized word or variable"), 1);
}

TEST_F(Hostile, ALineLongerThanTheBufferIsCut) {
  std::string text = "w = 1 + " + std::string(30000, ' ') + "2;\nw;\n";
  parseall(text);
  // The first piece was cut at 20000 characters: "2;" never arrived, so
  // "w = 1 +" met the "w" of the next line.
  ASSERT_NE(firstline, nullptr);
  EXPECT_EQ(std::string(firstline->text).size(), static_cast<std::size_t>(MAXLINE));
}

TEST_F(Hostile, DeepParentheses) {
  std::string open, close;
  // 1001 lines of 100: one level more than MAXEXPRNEST.
  for (int i = 0; i < 1001; ++i) {
    open += std::string(100, '(') + "\n";
    close += std::string(100, ')') + "\n";
  }
  std::string text = "w = " + open + "1" + close + ";\n";
  EXPECT_EQ(parseall(text), 0);
  EXPECT_EQ(count("Error: Expression is too complex"), 1);
}

TEST_F(Hostile, ModerateNestingIsFine) {
  std::string text = "w = " + std::string(60, '(') + "x" + std::string(60, ')') + ";\n";
  EXPECT_EQ(parseall(text), 1);
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Hostile, UnbalancedBrackets) {
  parseall("w = " + std::string(50000, '(') + ";\n");
  parseall("w = " + std::string(50000, ')') + ";\n");
  parseall("w = " + std::string(50000, '[') + ";\n");
  parseall("w = " + std::string(50000, ']') + ";\n");
  parseall("w = sin(" + std::string(5000, '(') + "1);\n");
  std::string subs;
  for (int i = 0; i < 20000; ++i) subs += "arr[";
  parseall("w = " + subs + "1;\n");
  EXPECT_GT(ncomperr, 0);
}

// Chains of 20,000 operators (and 20,000 nested calls) are accepted; every
// kind of chain beyond the height limit is refused with one message.
TEST_F(Hostile, LongChains) {
  auto chain = [](const std::string& first, const std::string& piece, int n, const std::string& last) {
    std::string s = first;
    for (int i = 0; i < n; ++i) s += i % 100 ? piece : piece + "\n";
    return s + last + ";\n";
  };
  for (int n : {20000, MAXEXPRHEIGHT}) {
    const int want = n < MAXEXPRHEIGHT ? 1 : 0;
    lstclear();
    EXPECT_EQ(parseall(chain("w = 1", "+x", n, "")), want) << n;
    EXPECT_EQ(parseall(chain("w = 2", "^2", n, "")), want) << n;
    EXPECT_EQ(parseall(chain("w", " = w", n, "")), want) << n;
    EXPECT_EQ(parseall(chain("w = ", "x ? 1 : ", n, "2")), want) << n;
    if (!want) {
      EXPECT_EQ(count("Error: Expression is too complex"), 4);
    }
  }
  // A comma list is one level per item as well, and calls one per call.
  EXPECT_EQ(parseall(chain("w = 1", ", 1", 20000, "")), 1);
  std::string calls;
  for (int i = 0; i < 20000; ++i) calls += i % 100 ? "sin(" : "sin(\n";
  std::string closes;
  for (int i = 0; i < 200; ++i) closes += std::string(100, ')') + "\n";
  EXPECT_EQ(parseall("w = " + calls + "1" + closes + ";\n"), 1);
}

TEST_F(Hostile, ManyArguments) {
  std::string args = "PRINTF(\"s\"";
  for (int i = 0; i < 100000; ++i) args += i % 100 ? " x" : " x\n";
  EXPECT_EQ(parseall(args + ");\n"), 1);
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Hostile, OpenCommentWithAHandlerThatReturns) {
  parseall("w = 1 + /* never closed\n x;\n");
  EXPECT_EQ(exitstatus(), 1);
  EXPECT_GT(ncomperr, 0);
}

TEST_F(Hostile, EmbeddedControlCharacters) {
  std::string text = "w = 1\x01\x02 + \x7f x\x1b;\n\r\r;\v\f;\n";
  parseall(text);
  EXPECT_GE(nerrors, 4);
}

}  // namespace
}  // namespace vexor::test
