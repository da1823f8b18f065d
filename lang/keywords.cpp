// The reserved words of the language and their codes.
//
// ORDER KEYWORD: the codes are the KW_ values of lang.h.  The table is
// searched from the top and the first match wins, so a word listed twice
// would take its first code; several words share a code (aliases such as
// "var"/"variable"/"variables", or "model" for "function").
#include "lang/lang.h"

namespace vexor {

namespace {

struct Keyword {
  const char* word;  // lower case
  uint8_t code;
};

const Keyword keywords[] = {
    {"angletype", KW_ANGLETYPE},   {"break", KW_BREAK},
    {"confidence", KW_CONFIDENCE}, {"constant", KW_CONSTANT},
    {"connect", KW_CONNECT},       {"connect2", KW_CONNECT2},
    {"constrain", KW_CONSTRAIN},   {"continue", KW_CONTINUE},
    {"covariance", KW_COVARIANCE}, {"correlate", KW_CORRELATE},
    {"data", KW_DATA},             {"dataskip", KW_DATASKIP},
    {"datacount", KW_DATACOUNT},   {"do", KW_DO},
    {"domain", KW_DOMAIN},         {"double", KW_DOUBLE},
    {"else", KW_ELSE},             {"for", KW_FOR},
    {"function", KW_FUNCTION},     {"grid", KW_GRID},
    {"if", KW_IF},                 {"iteration", KW_ITERATIONS},
    {"iterations", KW_ITERATIONS}, {"model", KW_FUNCTION},
    {"noecho", KW_NOECHO},         {"nogrid", KW_NOGRID},
    {"nomark", KW_NOMARK},         {"nomark2", KW_NOMARK2},
    {"nopause", KW_NOPAUSE},       {"notitle", KW_NOTITLE},
    {"noxlabel", KW_NOXLABEL},     {"noylabel", KW_NOYLABEL},
    {"nplot", KW_NPLOT},           {"output", KW_OUTPUT},
    {"parameter", KW_PARAMETERS},  {"parameters", KW_PARAMETERS},
    {"plot", KW_PLOT},             {"poutput", KW_POUTPUT},
    {"presolution", KW_PRESOLUTION}, {"print", KW_PRINT},
    {"rplot", KW_RPLOT},           {"splot", KW_SPLOT},
    {"stop", KW_STOP},             {"sweep", KW_SWEEP},
    {"title", KW_TITLE},           {"to", KW_TO},
    {"tolerance", KW_TOLERANCE},   {"values", KW_VALUES},
    {"var", KW_VARIABLES},         {"variable", KW_VARIABLES},
    {"variables", KW_VARIABLES},   {"while", KW_WHILE},
    {"width", KW_WIDTH},           {"xlabel", KW_XLABEL},
    {"xvar", KW_XVAR},             {"xvar2", KW_XVAR2},
    {"ylabel", KW_YLABEL},         {"yvar", KW_YVAR},
    {"yvar2", KW_YVAR2},
};

// ASCII case folding only: the language's words are ASCII, and bytes of
// 0x80 and above never reach a name.
char lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool sameword(const char* text, const char* word) {
  for (; *text && *word; ++text, ++word)
    if (lower(*text) != *word) return false;
  return *text == '\0' && *word == '\0';
}

}  // namespace

// kwlookup: a name whose text is a reserved word (any letter case) becomes
// TK_KEYWORD with the word's code; its text keeps the spelling used.
void kwlookup(Token* tok) {
  if (!tok || !tok->text) return;
  for (const Keyword& k : keywords) {
    if (sameword(tok->text, k.word)) {
      tok->kind = TK_KEYWORD;
      tok->keyword = k.code;
      return;
    }
  }
}

const char* kwword(int i) {
  const int n = static_cast<int>(sizeof keywords / sizeof keywords[0]);
  return i >= 0 && i < n ? keywords[i].word : nullptr;
}

}  // namespace vexor
