// Traps: places where the text of a program or its data is legal, and read
// as the language says, but is probably not what its writer meant (see
// lang.h).  The reader of the source, the expression parser and the DATA
// statement note them as they meet them; nothing is reported here, the
// listing does not change, and a tool may warn of them.
#include <cstring>

#include "lang/lang.h"

namespace vexor {

Trap traps[MAXTRAPS];
int32_t ntraps = 0;

void cleartraps() { ntraps = 0; }

void notetrap(uint8_t kind, uint8_t where, int32_t fileline, int32_t number, const char* text,
              bool coalesce) {
  if (coalesce) {
    for (int32_t i = 0; i < ntraps; ++i) {
      if (traps[i].kind == kind && traps[i].where == where) {
        ++traps[i].count;
        return;
      }
    }
  }
  if (ntraps == MAXTRAPS) return;
  Trap& t = traps[ntraps++];
  t.kind = kind;
  t.where = where;
  t.fileline = fileline;
  t.number = number;
  t.count = 1;
  std::size_t n = text ? std::strlen(text) : 0;
  if (n >= sizeof t.text) n = sizeof t.text - 1;
  if (n) std::memcpy(t.text, text, n);
  t.text[n] = '\0';
}

}  // namespace vexor
