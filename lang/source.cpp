// The source store and the character reader: the program text is cut into
// numbered pieces (source lines), each of which is kept as a SourceLine
// record, echoed with its number, and handed out one character at a time.
#include <cstring>

#include "lang/lang.h"

namespace vexor {

char* srctext = nullptr;
const char* srcpos = nullptr;
int32_t srcpieces = 1;

SourceLine* firstline = nullptr;
SourceLine* lastline = nullptr;
SourceLine* curline = nullptr;
int32_t srclineno = 0;
int32_t srcpieceline = 1;

namespace {

// The line of the program text that srcpos is on (from 1).
int32_t textline = 1;
// The last piece read: its terminator was a ';', and it held a "//".
bool lastsemi = false;
bool lastcomment = false;
int32_t lastpieceline = 0;  // its line of the text
// srcread had to drop characters of the last piece (past `limit`).
bool lastcut = false;

int needline = 1;        // the next srcgetc reads a new line first
int32_t column = 0;      // read position in linebuf
int atend = 0;           // srcread has reached the end of the text
char linebuf[MAXLINE + 1];  // the current line; srcread stores up to MAXLINE
char echobuf[19994 + 1];    // the current line with its tabs expanded

// Semicolons of the blank pieces that the last srcread call skipped, and
// those of them that srcgetc has still to hand out (see srcgetc).
int dropped = 0;
int pendingsemis = 0;

// One character of push-back with the line it came from.
int havepushed = 0;
signed char pushedc = 0;
SourceLine* pushedline = nullptr;

constexpr int ECHOMAX = 19994;  // characters of an echoed line

// Appends a record of the line just read to the line list and makes it the
// current line.
void addline(const char* text) {
  std::size_t len = std::strlen(text);
  auto* l = static_cast<SourceLine*>(
      memalloc(offsetof(SourceLine, text) + len + 1, "slb"));
  l->next = nullptr;
  l->prev = lastline;
  l->number = srclineno;
  l->fileline = srcpieceline;
  std::memcpy(l->text, text, len + 1);
  if (lastline)
    lastline->next = l;
  else
    firstline = l;
  lastline = l;
  curline = l;
}

// The traps of the piece just made the current line: a piece that follows
// a "//" comment ended by a ';' on the same line of the text is program text
// its writer took for part of the comment; a piece cut at MAXLINE lost its
// end.
void notetraps() {
  const SourceLine* l = curline;
  if (lastcomment && l->fileline == lastpieceline)
    notetrap(TRAP_COMMENTSEMI, TRAPIN_PROGRAM, l->fileline, l->number, l->text, false);
  if (lastcut) notetrap(TRAP_LONGLINE, TRAPIN_PROGRAM, l->fileline, l->number, l->text, false);
  lastcomment = lastsemi && std::strstr(l->text, "//") != nullptr;
  lastpieceline = l->fileline;
}

// The numbered echo: tabs expanded to the next multiple of TABSTOP columns,
// cut at ECHOMAX characters, written through the three channels: the whole
// line to the console while echo is on, the Listing's copy held to its text
// limit.
void echoline(const SourceLine* l) {
  int out = 0;
  for (const char* p = l->text; *p && out < ECHOMAX; ++p) {
    if (*p == '\t') {
      do echobuf[out++] = ' ';
      while (out % TABSTOP != 0 && out < ECHOMAX);
    } else {
      echobuf[out++] = *p;
    }
  }
  echobuf[out] = '\0';
  outprintf("%4d: %s\n", l->number, echobuf);
}

}  // namespace

// srcread: the next piece of the source, up to and including the next ';'
// or LF.  CRs are dropped; characters past `limit` are read and dropped, and
// the terminator ends the piece even then.  Pieces holding nothing but
// blanks, ';' and LF are skipped.  Text after the last terminator is never
// returned: a last statement with neither ';' nor a final LF is lost on
// purpose.  `buffer` must have room for limit + 1 characters.
int srcread(char* buffer, int limit) {
  dropped = 0;
  lastcut = false;
  if (!srcpos || *srcpos == '\0') return 0;
  int n = 0;
  int32_t start = textline;
  while (*srcpos != '\0') {
    char c = *srcpos++;
    if (c == '\r') continue;
    if (n == 0) start = textline;
    if (c == '\n') ++textline;
    if (n < limit)
      buffer[n++] = c;
    else
      lastcut = true;
    if (c != ';' && c != '\n') continue;
    bool content = false;
    for (int i = 0; i < n; ++i) {
      if (buffer[i] != ' ' && buffer[i] != ';' && buffer[i] != '\n') {
        content = true;
        break;
      }
    }
    if (content) {
      buffer[n] = '\0';
      ++srcpieces;
      srcpieceline = start;
      lastsemi = c == ';';
      return 1;
    }
    for (int i = 0; i < n; ++i) dropped += buffer[i] == ';';
    n = 0;
    lastcut = false;
  }
  // Text after the last terminator is never read: a trap when it holds more
  // than blanks.
  for (int i = 0; i < n; ++i) {
    if (buffer[i] != ' ' && buffer[i] != '\t') {
      buffer[n < limit ? n : limit] = '\0';
      notetrap(TRAP_NOLINEFEED, TRAPIN_PROGRAM, start, 0, buffer + i, false);
      break;
    }
  }
  return 0;
}

// srcgetc: the next character of the current line, reading a new line when
// the last one is used up.  0 at the end of a line (and at "//", which makes
// the rest of the line a comment, even inside a quoted string), -1 at the
// end of the source.  Bytes of 0x80 and above come back negative.
//
// A piece of nothing but blanks and semicolons is no line: srcread skips
// it, and it is neither numbered nor echoed, and its semicolons are dropped
// with it, so that "if (c) x = 1;; else x = 2;" and "do x++;; while (x < 3);"
// read as if the lone ";" were not there.  Inside parentheses a semicolon
// is part of a statement: in "for (;;)" the second ";" is such a piece of
// its own, and FOR needs it.  So while the tokenizer has a '(' open
// (lexparens), the skipped semicolons reach it after all, handed out (with
// the current line) before the characters of the next line.
signed char srcgetc(SourceLine** line) {
  if (havepushed) {
    havepushed = 0;
    if (line) *line = pushedline;
    return pushedc;
  }
  if (pendingsemis > 0) {
    --pendingsemis;
    if (line) *line = curline;
    return ';';
  }
  while (needline) {
    int got = srcread(linebuf, MAXLINE);
    if (lexparens > 0) pendingsemis += dropped;
    if (!got) {
      if (line) *line = curline;
      if (pendingsemis > 0) {
        --pendingsemis;
        return ';';
      }
      atend = 1;
      return -1;
    }
    linebuf[std::strcspn(linebuf, "\r\n")] = '\0';
    // The two directives must stand at the very start of the line.
    if (std::strncmp(linebuf, "// NOECHO", 9) == 0) echo = 0;
    if (std::strncmp(linebuf, "// ZUPRAK", 9) == 0) {
      echo = 0;
      continue;  // neither numbered nor echoed
    }
    ++srclineno;
    column = 0;
    needline = 0;
    addline(linebuf);
    if (srclist) echoline(curline);
    notetraps();
  }
  if (line) *line = curline;
  if (pendingsemis > 0) {
    --pendingsemis;
    return ';';
  }
  char c = linebuf[column];
  if (c == '\0') {
    needline = 1;
    return 0;
  }
  ++column;
  if (c == '/' && linebuf[column] == '/') {
    needline = 1;
    return 0;
  }
  return static_cast<signed char>(c);
}

// srcungetc: one character of push-back; a second one replaces the first.
void srcungetc(signed char c, SourceLine* line) {
  havepushed = 1;
  pushedc = c;
  pushedline = line;
}

int srcended() { return atend; }

// The character reader's part of the lexer reset.
void srcreset() {
  textline = 1;
  srcpieceline = 1;
  lastsemi = lastcomment = lastcut = false;
  lastpieceline = 0;
  needline = 1;
  srclineno = 0;
  column = 0;
  atend = 0;
  dropped = 0;
  pendingsemis = 0;
  havepushed = 0;
  pushedline = nullptr;
  curline = nullptr;
}

void freelines() {
  SourceLine* l = firstline;
  while (l) {
    SourceLine* next = l->next;
    memfree(l);
    l = next;
  }
  firstline = lastline = curline = nullptr;
  pushedline = nullptr;
}

void srcfree() {
  if (srctext) memfree(srctext);
  srctext = nullptr;
  srcpos = nullptr;
  srcpieces = 1;
}

void srcset(const char* text) {
  srcfree();
  if (text) {
    std::size_t len = std::strlen(text);
    srctext = static_cast<char*>(memalloc(len + 1, "DynamicString"));
    std::memcpy(srctext, text, len + 1);
    srcpos = srctext;
  }
  lexreset();
}

}  // namespace vexor
