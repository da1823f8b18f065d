// The tagged memory allocator.
//
// In guarded mode (the default, level 1) every block carries a header with
// its links in the list of live blocks, a short tag naming its use, its size
// and a serial number, and is fenced by 16 'H' bytes before and 16 'T' bytes
// after the caller's memory.  A free checks the guards and reports overruns,
// underruns and second frees with the address of the bad byte and the tag.
// Level 2 checks every live block on every allocation and free; level 0
// passes straight through to the runtime heap.
//
// Choices of this allocator that go beyond the bare layout:
// - The header is cleared before it is filled, so the byte after a cut tag
//   is 0 and a tag of 15 or more characters reads back as its first 14.
// - A freed guarded block is not handed back to the runtime heap at once:
//   the last FREEDKEPT blocks wait in a small ring with their head guard
//   overwritten by 'X'.  A second free of such a block then reads memory that
//   is still ours, is reported as head corruption at its first guard byte,
//   and is not unlinked or released a second time.  (A second free of a
//   block that has already left the ring reads released memory: the report
//   can only be trusted within FREEDKEPT frees.)  A block of RETAINMAX bytes
//   or more goes back to the heap at once, so that the ring never holds more
//   than FREEDKEPT * RETAINMAX bytes: the ring keeps only its address and
//   tag, and a second free of it within FREEDKEPT frees is reported just the
//   same, from that record, without reading the released memory.  An address
//   the heap hands out again leaves the ring.
// - The lock is recursive, as a critical section is: the error handler and
//   the fatal hook run while it is held (during a free or a check), and may
//   allocate or free themselves, for example to write the report into the
//   listing.
// - A size whose block (header and tail guard included) cannot be
//   represented is an allocation failure, reported like any other.
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "support/support.h"

namespace vexor {
namespace {

struct BlockHeader {
  BlockHeader* next;
  BlockHeader* prev;
  char tag[16];
  std::size_t size;  // the requested size, whole (blocks of 4 GiB and more)
  uint32_t serial;
  unsigned char pad[4];
  unsigned char head[MEMGUARD];
};
static_assert(sizeof(BlockHeader) == MEMHEADER, "header layout");

constexpr int FREEDKEPT = 32;
constexpr std::size_t RETAINMAX = 65536;

// One place of the ring: a retained block (released = false), or the
// address and tag of a large block already given back to the heap.
struct Retired {
  BlockHeader* h;
  bool released;
  char tag[16];
};

using Lock = std::recursive_mutex;

Lock* lock() {
  // Created on first use and never destroyed, so that blocks freed by static
  // destructors at exit still find it.
  static Lock* m = new Lock;
  return m;
}

int guardlevel = 1;
bool fillnew = false;
bool freenullsilent = false;
BlockHeader* livehead = nullptr;
long livecount = 0;
uint32_t serialcounter = 0;
std::size_t bytesnow = 0;
std::size_t bytespeak = 0;
std::size_t bytelimit = 0;  // 0: none

// Whether `more` bytes beyond what is live now stay within the limit.
bool withinlimit(std::size_t more) {
  return bytelimit == 0 || (more <= bytelimit && bytesnow <= bytelimit - more);
}
Retired freedring[FREEDKEPT];
int freednext = 0;

void defaulterrorhandler(const char* message) {
  std::fputs(message, stderr);
  std::fflush(stderr);
}
void emptyfatalhook() {}

MemErrorHandler errorhandler = defaulterrorhandler;
MemFatalHook fatalhook = emptyfatalhook;

unsigned char* usermem(BlockHeader* h) {
  return reinterpret_cast<unsigned char*>(h) + MEMHEADER;
}
BlockHeader* headerof(const void* block) {
  return reinterpret_cast<BlockHeader*>(
      const_cast<unsigned char*>(static_cast<const unsigned char*>(block)) - MEMHEADER);
}

void fill(void* p, std::size_t size) {
  // Whole 4-byte words first, then the remaining size mod 4 bytes.
  auto* w = static_cast<unsigned char*>(p);
  std::size_t words = size / 4;
  for (std::size_t i = 0; i < words; ++i) std::memset(w + 4 * i, 0xFE, 4);
  std::memset(w + 4 * words, 0xFE, size % 4);
}

// Checks one block's guards; returns true when the head guard shows the mark
// of a block that has already been freed.
bool checkblock(BlockHeader* h) {
  bool wasfreed = true;
  for (std::size_t i = 0; i < MEMGUARD; ++i) {
    unsigned char c = h->head[i];
    if (c != 'X') wasfreed = false;
    if (c == 'H' || (i == 0 && c == 'h')) continue;
    memerror("\nMemory head corruption at %llX, %.15s\n",
             static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(&h->head[i])), h->tag);
    fatalhook();
  }
  unsigned char* tail = usermem(h) + h->size;
  for (std::size_t i = 0; i < MEMGUARD; ++i) {
    unsigned char* p = tail + i;
    if (*p++ == 'T') continue;
    // The address is taken after the pointer has moved past the bad byte.
    memerror("\nMemory tail corruption at %llX, %.15s\n",
             static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(p)), h->tag);
    fatalhook();
  }
  return wasfreed;
}

void checkall_locked() {
  for (BlockHeader* h = livehead; h; h = h->next) checkblock(h);
}

// Keeps a freed block for a while before it goes back to the runtime heap
// (a large one goes back at once; its record stays).
void retire(BlockHeader* h) {
  Retired& slot = freedring[freednext];
  if (slot.h && !slot.released) std::free(slot.h);
  slot.h = h;
  slot.released = h->size >= RETAINMAX;
  std::memcpy(slot.tag, h->tag, sizeof slot.tag);
  freednext = (freednext + 1) % FREEDKEPT;
  if (slot.released) std::free(h);
}

Retired* retired(BlockHeader* h) {
  for (Retired& r : freedring)
    if (r.h == h) return &r;
  return nullptr;
}

// A block the heap has just handed out may sit at an address the ring
// remembers from a released block: that record is no longer true.
void forgetreleased(BlockHeader* h) {
  for (Retired& r : freedring)
    if (r.h == h && r.released) r.h = nullptr;
}

// The report of a second free of a released block, as checkblock would give
// it from the block's 'X' guard, written from the ring's record.
void reportreleased(const Retired& r) {
  for (std::size_t i = 0; i < MEMGUARD; ++i) {
    memerror("\nMemory head corruption at %llX, %.15s\n",
             static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(&r.h->head[i])), r.tag);
    fatalhook();
  }
}

// Links a header at the head of the live list.
void linkhead(BlockHeader* h) {
  h->next = livehead;
  h->prev = nullptr;
  if (livehead) livehead->prev = h;
  livehead = h;
}

void unlink(BlockHeader* h) {
  if (h->prev)
    h->prev->next = h->next;
  else
    livehead = h->next;
  if (h->next) h->next->prev = h->prev;
}

// A new block from the runtime heap: malloc, or calloc when it is to be
// zero (calloc leaves a large block untouched until it is used, so its pages
// cost nothing before then).
void* alloc(std::size_t size, const char* tag, bool zero, bool limited) {
  Lock* m = lock();
  m->lock();
  ++livecount;
  if (guardlevel == 0) {
    void* p = zero ? std::calloc(size ? size : 1, 1) : std::malloc(size ? size : 1);
    if (!p) --livecount;  // a block that was never handed out is not live
    m->unlock();
    if (p && fillnew && !zero) fill(p, size);
    return p;
  }
  const std::size_t whole = size + MEMHEADER + MEMGUARD;
  auto* h = size <= SIZE_MAX - MEMHEADER - MEMGUARD && (!limited || withinlimit(size))
                ? static_cast<BlockHeader*>(zero ? std::calloc(whole, 1) : std::malloc(whole))
                : nullptr;
  if (!h) {
    --livecount;
    m->unlock();
    memerror("\nInsufficient free memory space is available.\n");
    fatalhook();
    return nullptr;
  }
  forgetreleased(h);
  std::memset(h, 0, MEMHEADER);
  h->serial = ++serialcounter;
  h->size = size;
  linkhead(h);
  const char* t = tag ? tag : "";
  std::size_t len = std::strlen(t);
  if (len >= 15) {
    std::memcpy(h->tag, t, 14);
    h->tag[15] = '\0';
  } else {
    std::memcpy(h->tag, t, len + 1);
  }
  std::memset(h->head, 'H', MEMGUARD);
  std::memset(usermem(h) + size, 'T', MEMGUARD);
  bytesnow += size;
  if (bytesnow > bytespeak) bytespeak = bytesnow;
  m->unlock();
  if (fillnew && !zero) fill(usermem(h), size);
  if (guardlevel >= 2) memcheckall();
  return usermem(h);
}

}  // namespace

void* memalloc(std::size_t size, const char* tag) { return alloc(size, tag, false, false); }

void* memalloczero(std::size_t size, const char* tag) { return alloc(size, tag, true, true); }

void* memcalloc(std::size_t size, const char* tag) {
  void* p = memalloc(size, tag);
  if (p) std::memset(p, 0, size);
  return p;
}

void memfree(void* block) {
  if (!block) {
    if (freenullsilent) return;
    memerror("\nmemfree: Freeing null memory block\n");
    fatalhook();
    std::lock_guard<Lock> g(*lock());
    --livecount;
    return;
  }
  std::lock_guard<Lock> g(*lock());
  --livecount;
  if (guardlevel == 0) {
    std::free(block);
    return;
  }
  BlockHeader* h = headerof(block);
  if (Retired* r = retired(h); r && r->released) {
    if (guardlevel >= 2) checkall_locked();
    reportreleased(*r);  // a second free of a large block
    return;
  }
  bool wasfreed;
  if (guardlevel < 2) {
    wasfreed = checkblock(h);
  } else {
    checkall_locked();
    wasfreed = retired(h) ? checkblock(h) : false;
  }
  if (wasfreed && retired(h)) return;  // a second free: reported above
  bytesnow -= h->size;
  unlink(h);
  std::memset(h->head, 'X', MEMGUARD);
  retire(h);
}

void* memrealloc(void* block, std::size_t size) {
  if (guardlevel == 0) {
    std::lock_guard<Lock> g(*lock());
    if (!block) ++livecount;
    return std::realloc(block, size ? size : 1);
  }
  if (!block) return memcalloc(size, "realloc");
  BlockHeader* h = headerof(block);
  if (h->size == size) return block;
  char tag[16];
  std::memcpy(tag, h->tag, sizeof tag);
  void* n = memcalloc(size, tag);
  if (!n) return nullptr;
  std::memcpy(n, block, h->size < size ? h->size : size);
  memfree(block);
  return n;
}

void* memresize(void* block, std::size_t size) {
  if (guardlevel == 0) {
    std::lock_guard<Lock> g(*lock());
    void* p = std::realloc(block, size ? size : 1);
    if (p && !block) ++livecount;
    return p;
  }
  if (!block) return memalloc(size, "realloc");
  std::lock_guard<Lock> g(*lock());
  BlockHeader* h = headerof(block);
  checkblock(h);
  const bool fits = size <= SIZE_MAX - MEMHEADER - MEMGUARD &&
                    (size <= h->size || withinlimit(size - h->size));
  // The header may move: it leaves the list first and comes back at its
  // head, with a new serial number like any new block.
  unlink(h);
  auto* n = fits ? static_cast<BlockHeader*>(std::realloc(h, size + MEMHEADER + MEMGUARD)) : nullptr;
  if (!n) {
    linkhead(h);
    memerror("\nInsufficient free memory space is available.\n");
    fatalhook();
    return nullptr;
  }
  forgetreleased(n);
  bytesnow = bytesnow - n->size + size;
  if (bytesnow > bytespeak) bytespeak = bytesnow;
  n->size = size;
  n->serial = ++serialcounter;
  linkhead(n);
  std::memset(usermem(n) + size, 'T', MEMGUARD);
  return usermem(n);
}

// A count whose byte size overflows asks for the largest size there is,
// which fails like any allocation the heap cannot satisfy.
static std::size_t elementbytes(long count, std::size_t width) {
  const auto c = static_cast<std::size_t>(count);
  return c <= SIZE_MAX / width ? c * width : SIZE_MAX;
}

double* memallocdoubles(const char* tag, long count) {
  void* p = count >= 0 ? alloc(elementbytes(count, 8), tag, false, true) : nullptr;
  if (!p) memcheckall();
  return static_cast<double*>(p);
}

int32_t* memallocints(const char* tag, long count) {
  void* p = count >= 0 ? alloc(elementbytes(count, 4), tag, false, true) : nullptr;
  if (!p) memcheckall();
  return static_cast<int32_t*>(p);
}

void memcheck(const void* block) {
  if (!block || guardlevel == 0) return;
  checkblock(headerof(block));
}

void memcheckall() {
  if (guardlevel == 0) return;
  std::lock_guard<Lock> g(*lock());
  checkall_locked();
}

void memerror(const char* format, ...) {
  char buf[LSTMAXTEXT];
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  errorhandler(buf);
}

MemErrorHandler setmemerrorhandler(MemErrorHandler handler) {
  MemErrorHandler old = errorhandler;
  errorhandler = handler ? handler : defaulterrorhandler;
  return old;
}

MemFatalHook setmemfatalhook(MemFatalHook hook) {
  MemFatalHook old = fatalhook;
  fatalhook = hook ? hook : emptyfatalhook;
  return old;
}

void setmemlimit(std::size_t bytes) {
  std::lock_guard<Lock> g(*lock());
  bytelimit = bytes;
}
std::size_t memlimit() {
  std::lock_guard<Lock> g(*lock());
  return bytelimit;
}

void setmemguardlevel(int level) { guardlevel = level; }
void setmemfill(bool on) { fillnew = on; }
void setmemfreenullsilent(bool on) { freenullsilent = on; }

long memlivecount() {
  std::lock_guard<Lock> g(*lock());
  return livecount;
}
std::size_t membytes() {
  std::lock_guard<Lock> g(*lock());
  return bytesnow;
}
std::size_t mempeak() {
  std::lock_guard<Lock> g(*lock());
  return bytespeak;
}
void memresetpeak() {
  std::lock_guard<Lock> g(*lock());
  bytespeak = bytesnow;
}
uint32_t memserial() {
  std::lock_guard<Lock> g(*lock());
  return serialcounter;
}
const char* memtag(const void* block) { return headerof(block)->tag; }

}  // namespace vexor
