// RANDOM's generator: the classic 15-bit linear congruential generator of
// the C runtime, carried here so that every platform gives the same
// sequence.  It starts from state 1 and is never reseeded, so each process
// sees one fixed sequence.
#include "builtins/builtins.h"

namespace vexor {

uint32_t randstate = 1;

// state = state * 214013 + 2531011 (mod 2^32); result bits 16..30, 0..32767.
int randnext() {
  randstate = randstate * 214013u + 2531011u;
  return (int)((randstate >> 16) & 0x7FFFu);
}

}  // namespace vexor
