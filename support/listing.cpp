// The analysis listing and the three-channel output.
//
// The Listing is a singly linked list of records, one per lstprintf call,
// each holding its formatted text with every line feed stored as CR LF.
// Producers write through outprintf, which sends the same text to the
// console (when echo is on), to the listing file (when one is open) and to
// the Listing (when it is enabled).
//
// A record and its text are stored together in chunks of LSTCHUNK bytes
// (tag "linebuf"), one after the other, not as two allocator blocks each:
// a run that reports an error for each of a million observations writes two
// million records, and two blocks a record would cost some 200 bytes of
// headers, guards and heap bookkeeping on top of each text of 50.  The
// chunks are freed together by lstclear.
#include <cstdarg>
#include <cstring>

#include "support/support.h"

namespace vexor {

int echo = 0;
FILE* lstfile = nullptr;
int lstenabled = 1;
int32_t ncomperr = 0;
char srcrefpath[LSTMAXTEXT] = "";

namespace {

constexpr std::size_t LSTCHUNK = 65536;

struct Chunk {
  Chunk* next;
  std::size_t used;  // bytes of data[] handed out
  alignas(ListingLine) char data[LSTCHUNK];
};

ListingLine* first = nullptr;
ListingLine* last = nullptr;
bool capturing = false;
LstCapture captured{};  // what lstcapture has set aside so far
Chunk* chunks = nullptr;  // newest first
long textlength = 0;      // sum of the record texts' lengths

// Room for a record with a text of `textbytes` bytes (NUL included).
ListingLine* newrecord(std::size_t textbytes) {
  const std::size_t need = (sizeof(ListingLine) + textbytes + alignof(ListingLine) - 1) &
                           ~(alignof(ListingLine) - 1);
  if (!chunks || chunks->used + need > LSTCHUNK) {
    auto* c = static_cast<Chunk*>(memalloc(sizeof(Chunk), "linebuf"));
    c->next = chunks;
    c->used = 0;
    chunks = c;
  }
  auto* rec = reinterpret_cast<ListingLine*>(chunks->data + chunks->used);
  chunks->used += need;
  rec->next = nullptr;
  rec->text = reinterpret_cast<char*>(rec + 1);
  return rec;
}

void append(const char* text) {
  std::size_t len = std::strlen(text);
  std::size_t lf = 0;
  for (std::size_t i = 0; i < len; ++i)
    if (text[i] == '\n') ++lf;
  ListingLine* rec = newrecord(len + lf + 1);
  char* t = rec->text;
  if (lf == 0) {
    std::memcpy(t, text, len + 1);
  } else {
    char* d = t;
    for (std::size_t i = 0; i < len; ++i) {
      if (text[i] == '\n') *d++ = '\r';
      *d++ = text[i];
    }
    *d = '\0';
  }
  if (capturing) {
    if (!captured.first)
      captured.first = captured.last = rec;
    else
      captured.last = captured.last->next = rec;
    return;
  }
  textlength += static_cast<long>(len + lf);
  if (!first) {
    first = last = rec;
  } else {
    last->next = rec;
    last = rec;
  }
}

}  // namespace

void vformatcut(char* buf, std::size_t size, const char* fmt, va_list ap) {
  va_list copy;
  va_copy(copy, ap);
  int n = std::vsnprintf(buf, size, fmt, copy);
  va_end(copy);
  if (n < 0) {
    buf[0] = '\0';
    return;
  }
  if (static_cast<std::size_t>(n) >= size) {
    // Find out how the whole text ends without keeping it.
    va_copy(copy, ap);
    char* whole = static_cast<char*>(memalloc(static_cast<std::size_t>(n) + 1, "lstlong"));
    bool endsline = false;
    if (whole) {
      std::vsnprintf(whole, static_cast<std::size_t>(n) + 1, fmt, copy);
      endsline = whole[n - 1] == '\n';
      memfree(whole);
    } else {
      // No room for the whole text: judge by the format's last character.
      std::size_t flen = std::strlen(fmt);
      endsline = flen > 0 && fmt[flen - 1] == '\n';
    }
    va_end(copy);
    buf[size - 2] = endsline ? '\n' : '\0';
    buf[size - 1] = '\0';
  }
}

void lstprintf(const char* fmt, ...) {
  char buf[LSTMAXTEXT];
  va_list ap;
  va_start(ap, fmt);
  vformatcut(buf, LSTMAXTEXT, fmt, ap);
  va_end(ap);
  append(buf);
}


long lstlength() { return textlength + 1; }

void lstcopy(char* buf) {
  char* d = buf;
  for (ListingLine* l = first; l; l = l->next) {
    std::size_t len = std::strlen(l->text);
    std::memcpy(d, l->text, len);
    d += len;
  }
  *d = '\0';
}

ListingLine* lstfirst() { return first; }

void lstcapture() {
  capturing = true;
  captured = LstCapture{};
}

LstCapture lstcaptured() {
  capturing = false;
  LstCapture c = captured;
  captured = LstCapture{};
  return c;
}

void lstreplay(const LstCapture& c) {
  for (ListingLine* r = c.first; r; r = r->next) {
    textlength += static_cast<long>(std::strlen(r->text));
    if (r == c.last) break;
  }
  if (!c.first) return;
  if (!first)
    first = c.first;
  else
    last->next = c.first;
  last = c.last;
  last->next = nullptr;
}

void lstclear() {
  capturing = false;
  captured = LstCapture{};
  while (chunks) {
    Chunk* next = chunks->next;
    memfree(chunks);
    chunks = next;
  }
  first = last = nullptr;
  textlength = 0;
}

// The console and the listing file are written with printf and fprintf
// and get the whole text; only the Listing's copy is held to LSTMAXTEXT.
void outprintf(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  if (echo) {
    va_list copy;
    va_copy(copy, ap);
    std::vprintf(fmt, copy);
    va_end(copy);
    std::fflush(stdout);
  }
  if (lstfile) {
    va_list copy;
    va_copy(copy, ap);
    std::vfprintf(lstfile, fmt, copy);
    va_end(copy);
  }
  if (lstenabled) {
    char buf[LSTMAXTEXT];
    vformatcut(buf, LSTMAXTEXT, fmt, ap);
    append(buf);
  }
  va_end(ap);
}

void lsterror(const char* text) {
  char buf[LSTMAXTEXT];
  std::snprintf(buf, sizeof buf, "Error: %s", text);
  std::size_t len = std::strlen(buf);
  // A report always ends its line, so that two errors never share one.
  if (len == 0 || buf[len - 1] != '\n') {
    if (len + 1 < sizeof buf) {
      buf[len] = '\n';
      buf[len + 1] = '\0';
    } else {
      buf[sizeof buf - 2] = '\n';
    }
  }
  lstprintf("%s", buf);
  if (lstfile) std::fprintf(lstfile, "Error: %s\n", text);
  ++ncomperr;
}

void srcpath(const char* name, char* result, std::size_t size) {
  if (size == 0) return;
  result[0] = '\0';
  if (std::strchr(name, ':') || std::strchr(name, '\\')) {
    std::snprintf(result, size, "%s", name);
    return;
  }
  std::size_t dir = 0;
  for (std::size_t i = 0; srcrefpath[i]; ++i)
    if (srcrefpath[i] == ':' || srcrefpath[i] == '\\') dir = i + 1;
  std::snprintf(result, size, "%.*s%s", static_cast<int>(dir), srcrefpath, name);
}

void defext(char* name, const char* ext, std::size_t size) {
  if (std::strchr(name, '.')) return;
  std::size_t len = std::strlen(name);
  while (len > 0 && (name[len - 1] == ' ' || name[len - 1] == '\t')) --len;
  name[len] = '\0';
  bool upper = len > 0 && name[len - 1] >= 'A' && name[len - 1] <= 'Z';
  if (len + 1 >= size) return;
  name[len++] = '.';
  for (const char* e = ext; *e && len + 1 < size; ++e) {
    char c = *e;
    if (upper && c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    if (!upper && c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    name[len++] = c;
  }
  name[len] = '\0';
}

}  // namespace vexor
