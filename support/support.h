// Support services shared by every part of the engine: the tagged memory
// allocator, the analysis listing with its three output channels, and the
// serial date and time used by the runtime line of the listing.
//
// All state here is process-wide.  The allocator alone guards its block list
// with a lock; everything else is single-threaded, like the rest of the engine.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace vexor {

// ---------------------------------------------------------------------------
// Tagged memory allocator
//
// Guarded block, one allocation of size + 80 bytes (64-bit layout):
//
//   offset  width  field
//        0      8  next live block (null at the end)
//        8      8  previous live block (null at the head)
//       16     16  tag, NUL-terminated; a tag of 15 characters or more keeps
//                  its first 14 and byte 15 of the field is set to 0
//       32      4  requested size
//       36      4  serial number (1, 2, ... over all guarded allocations)
//       40      8  padding, so that the caller's memory is 16-byte aligned
//       48     16  head guard, 16 x 'H'
//       64   size  the caller's memory
//  64+size     16  tail guard, 16 x 'T'
//
// The head guard is always the 16 bytes right before the caller's memory and
// the tail guard the 16 bytes right after it, so every address a corruption
// report gives is relative to the caller's pointer.
// ---------------------------------------------------------------------------

inline constexpr std::size_t MEMHEADER = 64;  // bytes before the caller's memory
inline constexpr std::size_t MEMGUARD = 16;   // bytes in each guard

// Allocation.  memalloc never returns null for a size it could allocate;
// memalloc(0, tag) in guarded mode gives a valid block with adjacent guards.
void* memalloc(std::size_t size, const char* tag);
void* memcalloc(std::size_t size, const char* tag);
void* memrealloc(void* block, std::size_t size);
void memfree(void* block);
// memalloc of a zero-filled block that the heap clears (calloc), so that a
// large block costs no memory until its pages are used.
void* memalloczero(std::size_t size, const char* tag);
// Grows or shrinks a block in place where the heap can (a large block is
// remapped, not copied), keeping its contents and tag; the part beyond the
// old size is not cleared.  The header may move, so the block gets a new
// serial number; on failure the block is unchanged and null is returned.
void* memresize(void* block, std::size_t size);

// The 8-byte and 4-byte element forms used for the analysis arrays: on
// failure they check every live block and return null.
double* memallocdoubles(const char* tag, long count);
int32_t* memallocints(const char* tag, long count);

// Guard checks.  memcheck takes the caller's pointer of one block.
void memcheck(const void* block);
void memcheckall();

// Formats a message (printf rules, cut to 600 bytes) and hands it to the
// error handler.  The default handler writes it to standard error.
void memerror(const char* format, ...);

using MemErrorHandler = void (*)(const char* message);
using MemFatalHook = void (*)();
MemErrorHandler setmemerrorhandler(MemErrorHandler handler);  // returns the old
MemFatalHook setmemfatalhook(MemFatalHook hook);              // returns the old

// A limit on the bytes of live guarded blocks (0, the default: none), which
// bounds the engine's large arrays: the blocks of memalloczero, memresize,
// memallocdoubles and memallocints (the data matrix, the work arrays of a
// fit, the per-observation results), whose callers all survive a refusal.
// Such an allocation that would pass the limit fails as one the heap
// refuses ("Insufficient free memory space is available.", then null).
// A host bounds the engine's memory with it; tests provoke allocation
// failures with it.  The small blocks of the compiler and the listing are
// not refused by it.
void setmemlimit(std::size_t bytes);
std::size_t memlimit();

// Allocator settings (none of them changes in normal operation).
void setmemguardlevel(int level);  // 0 plain, 1 guarded (default), 2 full walk
void setmemfill(bool on);          // fill new memory with 0xFE (default off)
void setmemfreenullsilent(bool on);  // ignore memfree(nullptr) (default off)

// Accounting.
long memlivecount();       // live blocks, both modes
std::size_t membytes();    // sum of requested sizes of live guarded blocks
std::size_t mempeak();     // highest value membytes() has reached
void memresetpeak();       // the peak starts again from membytes()
uint32_t memserial();      // serial number of the latest guarded block
const char* memtag(const void* block);  // tag of a guarded block

// ---------------------------------------------------------------------------
// Listing and message output
// ---------------------------------------------------------------------------

// Longest text one lstprintf call formats.  A longer text is cut: the first
// LSTMAXTEXT - 2 characters are kept and, when the full text ended with a
// line feed, that line feed is kept after them, so the line still ends.
inline constexpr int LSTMAXTEXT = 600;

// Formats into buf (size bytes, size >= 2) with vsnprintf semantics.  A text
// that does not fit keeps its first size - 2 characters and, when the whole
// text ended with a line feed, gets that line feed back after them.
void vformatcut(char* buf, std::size_t size, const char* fmt, va_list ap);

// Channel switches.
extern int echo;         // console echo (standard output), default off
extern FILE* lstfile;    // listing file; nothing in the engine opens one
extern int lstenabled;   // the in-memory Listing, default on

// The engine's error count: compile errors and the lexer's errors written by
// lsterror; compilation fails when it is not 0 after the last statement.
extern int32_t ncomperr;

void lstprintf(const char* format, ...);
long lstlength();                        // 1 + total text length
void lstclear();
// Copies the whole Listing into buf (at least lstlength() bytes).
void lstcopy(char* buf);
// Visits every record's text in order (for tests and joiners).
template <class F> void lstforeach(F f);

// The three-channel print: console when echo is on, the listing file when
// one is open, the Listing when it is enabled.
void outprintf(const char* format, ...);

// "Error: %s" into the Listing (ending its line), "Error: %s\n" into the
// listing file, and one more error counted in ncomperr.
void lsterror(const char* text);

// Path resolution for files named in a program: a name holding ':' or '\\'
// stands as it is; otherwise the directory part of the reference path (up to
// and including its last ':' or '\\') is put in front.  Result cut to size-1.
void srcpath(const char* name, char* result, std::size_t size);
extern char srcrefpath[];  // the reference path, empty in this engine

// Default extension: a name holding a '.' anywhere stays as it is; otherwise
// trailing blanks and tabs are dropped and "." and the extension are added,
// in upper case when the name's last character is an upper-case letter, in
// lower case otherwise.  size is the capacity of name.
void defext(char* name, const char* ext, std::size_t size);

// ---------------------------------------------------------------------------
// Date and time (serial seconds from a fixed day zero of the proleptic
// Gregorian calendar)
// ---------------------------------------------------------------------------

double anaclock();  // local time now, with milliseconds
long serialday(int year, int month, int day);  // 0 for an invalid date
double serialtime(int year, int month, int day, int hour, int minute, double second);
void calendar(double t, int* year, int* month, int* day);  // zeros for t <= 0
int dayofyear(double t);
bool isleapyear(int year);
extern int dateorder;  // 0 m/d/y, 1 d/m/y, 2 y.m.d for %f and %F
// Formats t by the format codes (see datetime.cpp) into dst (size bytes).
void timefmt(char* dst, std::size_t size, const char* format, double t);

// ---------------------------------------------------------------------------

struct ListingLine {
  ListingLine* next;
  char* text;
};
ListingLine* lstfirst();

// Setting records aside: between lstcapture() and lstcaptured() the
// records written go to a list of their own instead of the Listing (the
// console and the listing file are written as ever); lstreplay appends such
// a list to the Listing later, in its order.  So what a computation reports
// can land where its result is rendered.  Set-aside records are freed with
// the Listing (lstclear) whether or not they were replayed.
struct LstCapture {
  ListingLine* first;
  ListingLine* last;
};
void lstcapture();
LstCapture lstcaptured();
void lstreplay(const LstCapture& c);

template <class F> void lstforeach(F f) {
  for (ListingLine* l = lstfirst(); l; l = l->next) f(l->text);
}

}  // namespace vexor

// The explicit stack of the walkers that must not recurse.
#include "support/workstack.h"
