// The front end's five reporters.  Everything goes to the Listing through
// lstprintf; only compile errors (comperr, comperrl, datamsg) count in
// ncomperr and so make a compilation fail.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "lang/lang.h"

namespace vexor {

int32_t nerrors = 0;
int noticelisting = 1;
CompMsg compmsgs[MAXCOMPMSGS];
int32_t ncompmsgs = 0;
int32_t compmsgtotal = 0;

void clearcompmsgs() { ncompmsgs = compmsgtotal = 0; }

namespace {

constexpr int SHOWLINE = 70;  // characters of the line shown with an error

// Keeps a compile error's record (text without its line ends).
void notecompmsg(const SourceLine* line, const char* msg) {
  ++compmsgtotal;
  if (ncompmsgs >= MAXCOMPMSGS) return;
  CompMsg& m = compmsgs[ncompmsgs++];
  m.number = line ? line->number : 0;
  m.fileline = line ? line->fileline : 0;
  std::size_t n = 0;
  for (const char* p = msg; *p && n + 1 < sizeof m.text; ++p)
    if (*p != '\r' && *p != '\n') m.text[n++] = *p;
  m.text[n] = '\0';
}

// "Error: %s", ending its line even when the message has no line feed.
void errorline(const char* msg) {
  lstprintf("Error: %s", msg);
  std::size_t n = std::strlen(msg);
  if (n == 0 || msg[n - 1] != '\n') lstprintf("\n");
}

}  // namespace

// comperrl: the line (number right-aligned in four places, text without its
// leading blanks and tabs, at most 70 characters), then the message.
void comperrl(const SourceLine* line, const char* msg) {
  if (line) {
    const char* t = line->text;
    while (*t == ' ' || *t == '\t') ++t;
    lstprintf("  %4d: %.*s\n", static_cast<int>(line->number), SHOWLINE, t);
  }
  errorline(msg ? msg : "");
  notecompmsg(line, msg ? msg : "");
  ++ncomperr;
}

void comperr(const Token* tok, const char* msg) { comperrl(tok ? tok->line : nullptr, msg); }

// datamsg: the data errors; their texts carry their own line ends and no
// "Error: " prefix, and each is followed by one more line end.  The text and
// that line end must fit in one listing write (LSTMAXTEXT - 1 characters),
// so a longer text is cut as the listing cuts its own: its first
// LSTMAXTEXT - 3 characters are kept and, when the whole text ended with a
// line feed, that line feed goes back after them.
void datamsg(const char* format, ...) {
  char buf[LSTMAXTEXT];
  va_list ap;
  va_start(ap, format);
  vformatcut(buf, LSTMAXTEXT - 1, format, ap);
  va_end(ap);
  lstprintf("%s\n", buf);
  notecompmsg(nullptr, buf);
  ++ncomperr;
}

// notice: information that does not fail a compilation.
void notice(const SourceLine* /*line*/, const char* msg) {
  if (!msg) return;
  if (echo) std::printf("%s", msg);
  if (noticelisting) lstprintf("%s", msg);
}

// errmsg: the general errors (the lexer's character-level complaints),
// counted apart from the compile errors.  The text is always written with a
// line end of its own, as the reporter has always done; the one message that
// already ends in a line feed (the comment left open at the end of the
// source) therefore leaves an empty line after it.
void errmsg(const char* msg) {
  char buf[LSTMAXTEXT];
  std::snprintf(buf, sizeof buf - 2, "Error: %s", msg ? msg : "");
  lstprintf("%s\n", buf);
  notecompmsg(nullptr, msg ? msg : "");
  ++nerrors;
}

}  // namespace vexor
