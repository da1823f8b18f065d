// Writes the fuzzers' dictionary: every reserved word and built-in function
// name of the language, and its operators and punctuation, in libFuzzer's
// dictionary format.  Made from the engine's own tables at build time, so it
// never falls out of step with them.
#include <cstdio>

#include "exec/exec.h"
#include "lang/lang.h"

int main(int argc, char** argv) {
  FILE* f = argc > 1 ? std::fopen(argv[1], "w") : stdout;
  if (!f) return 1;
  for (int i = 0; const char* w = vexor::kwword(i); ++i) std::fprintf(f, "kw_%d=\"%s\"\n", i, w);
  for (int i = 0; i < vexor::NFUNCS; ++i)
    std::fprintf(f, "fn_%d=\"%s(\"\n", i, vexor::functable[i].name);
  const char* const punct[] = {"+", "-", "*", "/", "%", "^", "**", "(", ")", "{", "}", "[", "]",
                               "&&", "||", "!", "!=", ">=", ">", "<=", "<", "==", "=", ",", "+=",
                               "*=", "/=", "-=", "++", "--", "?", ":", ";", "//", "/*", "*/",
                               "\\\"", "\\x0a", "1e308", "1:30", "#INCLUDE", "// NOECHO",
                               "// ZUPRAK", "$OBS", "$PREDICTED", "$RESIDUAL", "residual"};
  int k = 0;
  for (const char* p : punct) std::fprintf(f, "p_%d=\"%s\"\n", k++, p);
  if (f != stdout) std::fclose(f);
  return 0;
}
