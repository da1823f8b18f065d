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
//   can only be trusted within FREEDKEPT frees.)
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
BlockHeader* freedring[FREEDKEPT];
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

// Keeps a freed block for a while before it goes back to the runtime heap.
void retire(BlockHeader* h) {
  BlockHeader* old = freedring[freednext];
  freedring[freednext] = h;
  freednext = (freednext + 1) % FREEDKEPT;
  std::free(old);
}

bool retired(BlockHeader* h) {
  for (BlockHeader* r : freedring)
    if (r == h) return true;
  return false;
}

}  // namespace

void* memalloc(std::size_t size, const char* tag) {
  Lock* m = lock();
  m->lock();
  ++livecount;
  if (guardlevel == 0) {
    void* p = std::malloc(size ? size : 1);
    if (!p) --livecount;  // a block that was never handed out is not live
    m->unlock();
    if (p && fillnew) fill(p, size);
    return p;
  }
  auto* h = size <= SIZE_MAX - MEMHEADER - MEMGUARD
                ? static_cast<BlockHeader*>(std::malloc(size + MEMHEADER + MEMGUARD))
                : nullptr;
  if (!h) {
    --livecount;
    m->unlock();
    memerror("\nInsufficient free memory space is available.\n");
    fatalhook();
    return nullptr;
  }
  std::memset(h, 0, MEMHEADER);
  h->serial = ++serialcounter;
  h->size = size;
  h->next = livehead;
  h->prev = nullptr;
  if (livehead) livehead->prev = h;
  livehead = h;
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
  if (fillnew) fill(usermem(h), size);
  if (guardlevel >= 2) memcheckall();
  return usermem(h);
}

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
  bool wasfreed;
  if (guardlevel < 2) {
    wasfreed = checkblock(h);
  } else {
    checkall_locked();
    wasfreed = retired(h) ? checkblock(h) : false;
  }
  if (wasfreed && retired(h)) return;  // a second free: reported above
  bytesnow -= h->size;
  if (h->prev)
    h->prev->next = h->next;
  else
    livehead = h->next;
  if (h->next) h->next->prev = h->prev;
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

// A count whose byte size overflows asks for the largest size there is,
// which fails like any allocation the heap cannot satisfy.
static std::size_t elementbytes(long count, std::size_t width) {
  const auto c = static_cast<std::size_t>(count);
  return c <= SIZE_MAX / width ? c * width : SIZE_MAX;
}

double* memallocdoubles(const char* tag, long count) {
  void* p = count >= 0 ? memalloc(elementbytes(count, 8), tag) : nullptr;
  if (!p) memcheckall();
  return static_cast<double*>(p);
}

int32_t* memallocints(const char* tag, long count) {
  void* p = count >= 0 ? memalloc(elementbytes(count, 4), tag) : nullptr;
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

void setmemguardlevel(int level) { guardlevel = level; }
int memguardlevel() { return guardlevel; }
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
uint32_t memserial() {
  std::lock_guard<Lock> g(*lock());
  return serialcounter;
}
const char* memtag(const void* block) { return headerof(block)->tag; }

}  // namespace vexor
