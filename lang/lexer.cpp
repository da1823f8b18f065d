// The tokenizer: turns the characters of srcgetc into Token records, with a
// push-back stack in front of it (gettok/ungettok).  Token kinds and
// operators: ORDER TOKEN in lang.h.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lang/lang.h"

namespace vexor {

int32_t lexparens = 0;

namespace {

Token* livetokens = nullptr;  // every token not yet freed, newest first
Token* tokstack = nullptr;    // the push-back stack of ungettok
int32_t includedepth = 0;     // raised by nothing in this system (see gettok)

void defaultexit(int status) { std::exit(status); }
LexExitHandler lexexit = defaultexit;

bool isletter(int c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isdigit10(int c) { return c >= '0' && c <= '9'; }
bool isnamestart(int c) { return isletter(c) || c == '_' || c == '#' || c == '$'; }
bool isnamechar(int c) { return isnamestart(c) || isdigit10(c); }

char* copytext(const char* text, std::size_t len) {
  char* s = static_cast<char*>(memalloc(len + 1, "listr"));
  std::memcpy(s, text, len);
  s[len] = '\0';
  return s;
}

bool sameword(const char* a, const char* b) {
  for (; *a && *b; ++a, ++b) {
    char x = *a, y = *b;
    if (x >= 'a' && x <= 'z') x = static_cast<char>(x - 'a' + 'A');
    if (y >= 'a' && y <= 'z') y = static_cast<char>(y - 'a' + 'A');
    if (x != y) return false;
  }
  return *a == '\0' && *b == '\0';
}

int hexval(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Reads the rest of a block comment; the opening "/*" has been read on line
// `startline`.  Returns false when the source ended inside it.
bool skipcomment(int32_t startline) {
  SourceLine* l;
  signed char c = srcgetc(&l);
  for (;;) {
    if (c == '*') {
      c = srcgetc(&l);
      if (c == '/') return true;
      continue;  // the character after '*' may itself be a '*'
    }
    if (c == -1 && srcended()) {
      char msg[120];
      std::snprintf(msg, sizeof msg,
                    "Hit end of file while processing comment that started on line %d\n",
                    static_cast<int>(startline));
      errmsg(msg);
      lexexit(1);
      return false;
    }
    c = srcgetc(&l);
  }
}

// A quoted string; the opening quote has been read.
void scanstring(Token* tok) {
  char buf[MAXSTRING + 1];
  int n = 0;
  SourceLine* l;
  for (;;) {
    signed char c = srcgetc(&l);
    if (c == '"') {
      // Only the one character stored before is looked at, so a string
      // ending in \\" is not ended by that quote.
      if (n > 0 && buf[n - 1] == '\\') {
        buf[n - 1] = '"';
        continue;
      }
      break;
    }
    if (c == 0) {
      comperrl(curline, "Missing quote at end of string");
      break;
    }
    if (n < MAXSTRING) buf[n++] = static_cast<char>(c);
  }
  buf[n] = '\0';
  unescape(buf);
  tok->kind = TK_STRING;
  tok->text = copytext(buf, std::strlen(buf));
}

// A name: keeps the first MAXNAME characters; the rest is read and ignored.
void scanname(signed char first, Token* tok) {
  char buf[MAXNAME + 1];
  int n = 0;
  SourceLine* l;
  signed char c = first;
  while (isnamechar(c)) {
    if (n < MAXNAME) buf[n++] = static_cast<char>(c);
    c = srcgetc(&l);
  }
  srcungetc(c, l);
  buf[n] = '\0';
  tok->kind = TK_NAME;
  tok->text = copytext(buf, static_cast<std::size_t>(n));
  kwlookup(tok);
}

// The second character of a two-character operator: `two` when the next
// character is `second`, otherwise `one` with that character pushed back.
uint8_t pair(char second, uint8_t two, uint8_t one) {
  SourceLine* l;
  signed char c = srcgetc(&l);
  if (c == second) return two;
  srcungetc(c, l);
  return one;
}

}  // namespace

LexExitHandler setlexexit(LexExitHandler handler) {
  LexExitHandler old = lexexit;
  lexexit = handler ? handler : defaultexit;
  return old;
}

void lexreset() {
  srcreset();
  includedepth = 0;
  lexparens = 0;
}

// scannum: a number starting with `first` (a digit or the decimal point).
// Built in doubles: m is the mantissa so far, s the sexagesimal part
// (h:m:s is read as ((h*60)+m)*60+s seconds), d the digits after the point,
// e the decimal exponent.  A negative exponent divides by 10^-e so that
// decimal fractions such as 0.5 come out exact.
void scannum(int first, Token* tok) {
  tok->kind = TK_NUMBER;
  tok->value = 0.0;
  double m = 0.0, s = 0.0;
  bool point = false;
  int d = 0;
  int e = 0;
  int esign = 1;
  SourceLine* l = curline;
  int c = first;
  for (;;) {
    if (isdigit10(c)) {
      m = m * 10.0 + (c - '0');
      if (d < 1000000) ++d;
    } else if (c == ':') {
      s = (s + m) * 60.0;
      m = 0.0;
    } else if (c == '.') {
      if (point) {
        // The second point is consumed; what follows starts new tokens.
        errmsg("Invalid number");
        tok->value = 0.0;
        return;
      }
      point = true;
      d = 0;
    } else {
      break;
    }
    c = srcgetc(&l);
  }
  double v = s + m;
  if (c == 'E' || c == 'e' || c == 'D' || c == 'd') {
    c = srcgetc(&l);
    if (c == '+' || c == '-') {
      if (c == '-') esign = -1;
      c = srcgetc(&l);
    }
    while (isdigit10(c)) {
      if (e < 1000000) e = e * 10 + (c - '0');  // far beyond any double
      c = srcgetc(&l);
    }
    e *= esign;
  }
  srcungetc(static_cast<signed char>(c), l);
  if (point) e -= d;
  // Plain double arithmetic throughout: 0e400 is 0 * infinity, not-a-number.
  if (e > 0)
    tok->value = v * std::pow(10.0, e);
  else if (e < 0)
    tok->value = v / std::pow(10.0, -e);
  else
    tok->value = v;
}

// unescape: escape sequences of a string, in place.  \b, \' and \f write
// their character without advancing, so the next character (or the
// terminator) overwrites it: the pair is lost, on purpose.
void unescape(char* text) {
  char* out = text;
  const char* in = text;
  while (*in) {
    if (*in != '\\' || in[1] == '\0') {
      *out++ = *in++;
      continue;
    }
    char c = in[1];
    in += 2;
    switch (c) {
      case 'n': *out++ = '\n'; break;
      case 'r': *out++ = '\r'; break;
      case 'a': *out++ = '\a'; break;
      case '\\': *out++ = '\\'; break;
      case '"': *out++ = '"'; break;
      case 'x': {
        int v = 0;
        for (int i = 0; i < 3 && hexval(*in) >= 0; ++i) v = v * 16 + hexval(*in++);
        *out++ = static_cast<char>(v & 0xFF);
        break;
      }
      case 'b': *out = '\b'; break;
      case '\'': *out = '\''; break;
      case 'f': *out = '\f'; break;
      default: *out++ = c; break;
    }
  }
  *out = '\0';
}

// scantok: one new token from the source (never null).
Token* scantok() {
  auto* tok = static_cast<Token*>(memcalloc(sizeof(Token), "li"));
  tok->next = livetokens;
  if (livetokens) livetokens->prev = tok;
  livetokens = tok;

  for (;;) {
    SourceLine* l;
    signed char c;
    do c = srcgetc(&l);
    while (c == ' ' || c == '\t' || c == 0);
    tok->line = l;

    // The end of the source, or a byte of 0x80 and above outside strings and
    // comments: either ends the program.  The statement loop stops at the
    // first TK_EOF; a later scantok would read on after such a byte.
    if (c < 0) {
      tok->kind = TK_EOF;
      return tok;
    }
    if (c == '/') {
      signed char n = srcgetc(&l);
      if (n == '*') {
        int32_t start = tok->line ? tok->line->number : srclineno;
        if (!skipcomment(start)) {
          // A host handler let the process go on: the source is over, and
          // the compilation must fail.
          ++ncomperr;
          tok->kind = TK_EOF;
          return tok;
        }
        continue;
      }
      if (n == '=') {
        tok->kind = TK_DIVASSIGN;
        return tok;
      }
      srcungetc(n, l);
      tok->kind = TK_DIV;
      return tok;
    }
    if (isnamestart(c)) {
      scanname(c, tok);
      return tok;
    }
    if (isdigit10(c)) {
      scannum(c, tok);
      return tok;
    }
    if (c == '.') {
      SourceLine* l2;
      signed char n = srcgetc(&l2);
      srcungetc(n, l2);
      if (isdigit10(n)) {
        scannum('.', tok);
        return tok;
      }
    }
    switch (c) {
      case '"': scanstring(tok); return tok;
      case ';': tok->kind = TK_SEMI; return tok;
      case '+': tok->kind = pair('+', TK_INC, TK_PLUS);
        if (tok->kind == TK_PLUS) tok->kind = pair('=', TK_ADDASSIGN, TK_PLUS);
        return tok;
      case '-': tok->kind = pair('-', TK_DEC, TK_MINUS);
        if (tok->kind == TK_MINUS) tok->kind = pair('=', TK_SUBASSIGN, TK_MINUS);
        return tok;
      case '*': tok->kind = pair('*', TK_POW, TK_MUL);
        if (tok->kind == TK_MUL) tok->kind = pair('=', TK_MULASSIGN, TK_MUL);
        return tok;
      case '=': tok->kind = pair('=', TK_EQ, TK_ASSIGN); return tok;
      case '!': tok->kind = pair('=', TK_NE, TK_NOT); return tok;
      case '<': tok->kind = pair('=', TK_LE, TK_LT); return tok;
      case '>': tok->kind = pair('=', TK_GE, TK_GT); return tok;
      case '^': tok->kind = TK_POW; return tok;
      case '%': tok->kind = TK_MOD; return tok;
      case '(': tok->kind = TK_LPAREN; ++lexparens; return tok;
      case ')':
        tok->kind = TK_RPAREN;
        if (lexparens > 0) --lexparens;
        return tok;
      case '{': tok->kind = TK_LBRACE; return tok;
      case '}': tok->kind = TK_RBRACE; return tok;
      case '[': tok->kind = TK_LBRACKET; return tok;
      case ']': tok->kind = TK_RBRACKET; return tok;
      case ',': tok->kind = TK_COMMA; return tok;
      case '?': tok->kind = TK_QUESTION; return tok;
      case ':': tok->kind = TK_COLON; return tok;
      case '&':
        tok->kind = pair('&', TK_AND, 0);
        if (tok->kind == 0) {
          errmsg("Invalid operator: &");
          tok->kind = TK_AND;
        }
        return tok;
      case '|':
        tok->kind = pair('|', TK_OR, 0);
        if (tok->kind == 0) {
          errmsg("Invalid operator: |");
          tok->kind = TK_OR;
        }
        return tok;
      case '`':
        comperr(tok, "Invalid character \"`\" in string. Missing quotes?");
        tok->kind = TK_STRING;
        tok->text = copytext("`", 1);
        return tok;
      default: {
        char msg[64];
        unsigned char u = static_cast<unsigned char>(c);
        std::snprintf(msg, sizeof msg, "Invalid character in program: %c (0x%02X)", u, u);
        errmsg(msg);
        break;  // skipped: scan on with the same record
      }
    }
  }
}

// gettok: the next token, from the push-back stack when it holds one.  The
// word #INCLUDE (any letter case) is accepted and ignored: no file is read.
Token* gettok() {
  if (tokstack) {
    Token* tok = tokstack;
    tokstack = tok->stacklink;
    tok->stacklink = nullptr;
    return tok;
  }
  for (;;) {
    Token* tok = scantok();
    if (tok->kind == TK_EOF && includedepth >= 1) {
      --includedepth;
      freetok(tok);
      continue;
    }
    if (tok->kind == TK_NAME && sameword(tok->text, "#INCLUDE")) {
      freetok(tok);
      continue;
    }
    return tok;
  }
}

void ungettok(Token* tok) {
  if (!tok) return;
  tok->stacklink = tokstack;
  tokstack = tok;
}

void freetok(Token* tok) {
  if (!tok) return;
  if (tok->prev)
    tok->prev->next = tok->next;
  else if (livetokens == tok)
    livetokens = tok->next;
  if (tok->next) tok->next->prev = tok->prev;
  // A token still on the push-back stack leaves it too.
  for (Token** p = &tokstack; *p; p = &(*p)->stacklink) {
    if (*p == tok) {
      *p = tok->stacklink;
      break;
    }
  }
  if (tok->text) memfree(tok->text);
  memfree(tok);
}

void freetoks() {
  while (livetokens) {
    Token* next = livetokens->next;
    if (livetokens->text) memfree(livetokens->text);
    memfree(livetokens);
    livetokens = next;
  }
  tokstack = nullptr;
}

}  // namespace vexor
