// The DATA statement: the observations are read at compile time, from the
// rest of the program text (inline records) or from a text file, into the
// data matrix.  DATASKIP and DATACOUNT tune the reading.
//
// The matrix has datacap rows of max(nparm, nvar) doubles, so that a
// function minimisation still has room for one row per parameter; the row
// stride is always nvar.  Data errors are counted in ndataerr (reset by the
// engine reset only) and only the first nine are printed; each counts as a
// compile error.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "compiler/statements.h"

namespace vexor {

char datafile[MAXPATH] = "";
long long datareadbound = MAXDATAREAD;

namespace {

bool digit(char c) { return c >= '0' && c <= '9'; }

// Cuts a record at its first CR, LF, ';' or "//" and returns its text
// without leading blanks and tabs.
char* cutrecord(char* rec) {
  // strcspn finds the next candidate a machine word or more at a time; a
  // lone '/' is passed over.
  for (char* p = rec;;) {
    p += std::strcspn(p, "\r\n;/");
    if (*p == '\0') break;
    if (*p != '/' || p[1] == '/') {
      *p = '\0';
      break;
    }
    ++p;
  }
  while (*rec == ' ' || *rec == '\t') ++rec;
  return rec;
}

// Reads the next record from the file (one text line, up to MAXDATAREC
// characters kept; the rest of a longer line is read and dropped) or, for
// inline data, the next piece of the program text.  A file line is read to
// its end only up to MAXRECORDREAD characters, and a file only up to
// datareadbound (MAXDATAREAD) bytes: an endless device (/dev/zero, a pipe that never
// closes) ends the reading there instead of holding the compiler for ever.
enum { REC_END = 0, REC_OK = 1, REC_TOOLONG = -1, REC_TOOLARGE = -2 };
long long filebytes = 0;  // bytes read from the data file so far

int32_t recordline = 0;  // the line of the program text or data file of the record

// The data file is read in chunks (getc per byte was a third of the time of
// reading a large file); `chunk` holds what has been read and not yet used.
struct ChunkReader {
  char chunk[1 << 16];
  std::size_t pos = 0, len = 0;
};
ChunkReader reader;

int nextrecord(FILE* f, char* buf) {
  if (!f) {
    if (!srcread(buf, MAXDATAREC)) return REC_END;
    ++srclineno;  // each inline record takes a line number
    recordline = srcpieceline;
    return REC_OK;
  }
  ++recordline;
  long n = 0;
  bool any = false;
  for (;;) {
    if (reader.pos == reader.len) {
      reader.len = std::fread(reader.chunk, 1, sizeof reader.chunk, f);
      reader.pos = 0;
      if (reader.len == 0) break;
    }
    any = true;
    const char* s = reader.chunk + reader.pos;
    const std::size_t avail = reader.len - reader.pos;
    const char* nl = static_cast<const char*>(std::memchr(s, '\n', avail));
    const long long take = nl ? nl - s : static_cast<long long>(avail);
    // Byte i of this piece would be byte filebytes + i + 1 of the file and
    // character n + i + 1 of the line: the file's bound is tested before
    // the line's, as byte by byte.
    const long long tofile = datareadbound - filebytes;  // bytes before the file's bound
    const long long toline = MAXRECORDREAD - n;        // characters before the line's
    long long use = take;
    int stop = REC_OK;
    if (tofile < use && tofile <= toline) {
      use = tofile;
      stop = REC_TOOLARGE;
    } else if (toline < use) {
      use = toline;
      stop = REC_TOOLONG;
    }
    if (n < MAXDATAREC) {
      const long long keep = std::min<long long>(use, MAXDATAREC - n);
      std::memcpy(buf + n, s, static_cast<std::size_t>(keep));
    }
    n += static_cast<long>(use);
    filebytes += use;
    if (stop != REC_OK) {
      ++filebytes;
      return stop;
    }
    reader.pos += static_cast<std::size_t>(take);
    if (nl) {
      ++reader.pos;
      if (++filebytes > datareadbound) return REC_TOOLARGE;
      break;
    }
  }
  buf[n < MAXDATAREC ? n : MAXDATAREC] = '\0';
  if (n > MAXDATAREC) notetrap(TRAP_LONGLINE, TRAPIN_DATAFILE, recordline, 0, buf, false);
  return any ? REC_OK : REC_END;
}

// Opens a data file for reading.  A directory opens on some systems but
// cannot be read: it counts as a file that cannot be opened.
FILE* opendata(const char* name) {
  FILE* f = std::fopen(name, "r");
  if (!f) return nullptr;
  const int c = std::fgetc(f);
  if (c == EOF && std::ferror(f)) {
    std::fclose(f);
    return nullptr;
  }
  if (c != EOF) std::ungetc(c, f);
  return f;
}

// The traps of a record (see lang.h): a first record that begins like a
// name (a header line), and a digit, a comma and a digit (a decimal comma,
// which reads as two values).  `where` and `number` place it.
void recordtraps(const char* rec, bool first, uint8_t where, int32_t number) {
  const unsigned char c = static_cast<unsigned char>(rec[0]);
  if (first && (std::isalpha(c) || c == '"' || c == '\'' || c == '_'))
    notetrap(TRAP_HEADERLIKE, where, recordline, number, rec, true);
  // A comma with a digit on each side; most records have no comma at all.
  for (const char* p = std::strchr(rec, ','); p; p = std::strchr(p + 1, ',')) {
    if (p > rec && digit(p[-1]) && digit(p[1])) {
      notetrap(TRAP_DECIMALCOMMA, where, recordline, number, rec, true);
      break;
    }
  }
}

}  // namespace

// 10^e as std::pow gives it: 10^0 to 10^22 are exact doubles (and pow
// returns them exactly), the rest through pow.
double powten(long e) {
  static constexpr double exact[23] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                       1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                       1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  return e <= 22 ? exact[e] : std::pow(10.0, static_cast<double>(e));
}

// datanum: one number of a data record, with an optional sign, h:m:s values
// and E or D exponents.  The value is built as in program text: digits after
// a point reduce the exponent, and a negative exponent divides, so that
// decimal fractions come out exact where they can.
int datanum(const char** pos, double* value, long recno) {
  const char* p = *pos;
  while (*p == ' ' || *p == '\t') ++p;
  const char* start = p;
  double sign = 1.0;
  if (*p == '+' || *p == '-') {
    if (*p == '-') sign = -1.0;
    ++p;
  }
  if (!digit(*p) && *p != '.') {
    ++ndataerr;
    if (ndataerr < 10) datamsg("Invalid character on data record %ld: %s\n", recno, p);
    *value = 0.0;  // the position does not move
    return 0;
  }
  // m = m * 10 + digit, in doubles.  While m stays below 10^15 every step
  // is exact, so the digits are gathered in an integer (im) as long as
  // that holds and m is made from it once: the same value without a chain
  // of floating-point operations per digit.
  double m = 0, s = 0;
  uint64_t im = 0;
  bool inint = true;  // m is im
  bool point = false;
  int after = 0;
  for (;; ++p) {
    if (digit(*p)) {
      if (inint && im < 100000000000000ULL) {
        im = im * 10 + static_cast<uint64_t>(*p - '0');
      } else {
        if (inint) m = static_cast<double>(im);
        inint = false;
        m = m * 10 + (*p - '0');
      }
      if (point) ++after;
    } else if (*p == ':') {
      if (inint) m = static_cast<double>(im);
      s = (s + m) * 60;
      m = 0;
      im = 0;
      inint = true;
    } else if (*p == '.') {
      if (point) {
        ++ndataerr;
        if (ndataerr < 10) datamsg("Two decimal points in number: %s\n", start);
        *value = 0.0;
        *pos = p + 1;
        return 0;
      }
      point = true;
    } else {
      break;
    }
  }
  if (inint) m = static_cast<double>(im);
  double v = s + m;
  long e = 0;
  if (*p == 'E' || *p == 'e' || *p == 'D' || *p == 'd') {
    ++p;
    long esign = 1;
    if (*p == '+' || *p == '-') {
      if (*p == '-') esign = -1;
      ++p;
    }
    while (digit(*p)) {
      if (e < 100000) e = e * 10 + (*p - '0');
      ++p;
    }
    e *= esign;
  }
  *pos = p;
  e -= after;
  if (e > 0)
    v *= powten(e);
  else if (e < 0)
    v /= powten(-e);
  *value = sign * v;
  return 1;
}

// DATASKIP [=] n ;  and  DATACOUNT [=] n ;
void stmtdataopt(Token* tok) {
  skipeq();
  Token* t = gettok();
  if (t->kind != TK_NUMBER) {
    syntaxfail(t, "Syntax error: numeric value missing");
    freetok(tok);
    return;
  }
  int32_t n = truncint(t->value);
  if (tok->keyword == KW_DATASKIP)
    skiprecs = n;
  else
    datacount = n;
  droptok(t);
  needsemi(tok);
  freetok(tok);
}

// DATA ;  followed by the records, or  DATA "file" ;
void stmtdata(Token* tok) {
  int32_t width = nparm > nvar ? nparm : nvar;
  FILE* f = nullptr;
  Token* t = gettok();
  if (t->kind == TK_STRING) {
    char name[MAXPATH];
    srcpath(t->text, name, sizeof name);
    defext(name, "dat", sizeof name);
    f = opendata(name);
    if (!f) {
      comperrf(t, "Unable to open data file: %s", name);
      droptok(t);
      freetok(tok);
      return;
    }
    std::snprintf(datafile, sizeof datafile, "%s", name);
    // The ';' after the file name stays: it is read as an empty statement.
    droptok(t);
  } else if (t->kind == TK_SEMI) {
    droptok(t);
  } else {
    // The compilation fails; the records are then read inline.
    comperr(t, "The file name must be enclosed in quote signs");
    if (t->kind == TK_EOF) ungettok(t); else droptok(t);
  }
  freetok(tok);

  if (!datanew(datacount >= 1 ? datacount : 200, width)) {
    comperrl(nullptr, "Insufficient memory space available");
    if (f) std::fclose(f);
    return;
  }
  char* buf = static_cast<char*>(memalloc(MAXDATAREC + 1, "datarec"));

  filebytes = 0;
  recordline = 0;
  reader.pos = reader.len = 0;
  int got = REC_OK;
  for (int32_t k = 0; k < skiprecs; ++k)
    if ((got = nextrecord(f, buf)) != REC_OK) break;

  nobs = 0;
  while (got == REC_OK && (got = nextrecord(f, buf)) == REC_OK) {
    if (!datareadroom()) {
      comperrl(nullptr, "Insufficient memory space available");
      break;
    }
    char* rec = cutrecord(buf);
    if (*rec == '\0') continue;
    const uint8_t where = f ? TRAPIN_DATAFILE : TRAPIN_PROGRAM;
    const int32_t number = f ? 0 : srclineno;
    recordtraps(rec, nobs == 0, where, number);
    const char* p = rec;
    const int32_t errorsbefore = ndataerr;
    bool shortrec = false;
    for (int32_t c = 0; c < nvar; ++c) {
      while (*p == ' ' || *p == '\t') ++p;
      if (*p == '\0') {
        ++ndataerr;
        if (ndataerr < 10) datamsg("Data record %ld has too few values: %.80s\n",
                                   static_cast<long>(nobs) + 1, rec);
        shortrec = true;
        break;
      }
      double v = 0;
      datanum(&p, &v, static_cast<long>(nobs) + 1);
      datamat[static_cast<std::size_t>(nobs) * nvar + c] = v;
      Symbol* s = invars[c];
      if (nobs == 0) {
        s->lower = s->upper = v;
      } else if (v > s->upper) {
        s->upper = v;
      } else if (v < s->lower) {
        s->lower = v;
      }
      while (*p == ' ' || *p == '\t' || *p == ',') ++p;
    }
    if (shortrec) break;
    // Values beyond the variables are dropped; a record whose values could
    // not all be read has said so already.
    if (*p != '\0' && ndataerr == errorsbefore)
      notetrap(TRAP_EXTRAVALUES, where, recordline, number, rec, true);
    ++nobs;
  }
  // The bounds of a file, each ending the reading with a message of its own
  // (a compile error, like every data message).
  if (got == REC_TOOLONG)
    datamsg("Data record %ld is longer than %ld characters: reading stops\n",
            static_cast<long>(nobs) + 1, static_cast<long>(MAXRECORDREAD));
  else if (got == REC_TOOLARGE)
    datamsg("Data file is larger than %lld bytes: reading stops after record %ld\n",
            datareadbound, static_cast<long>(nobs));
  if (f) std::fclose(f);
  memfree(buf);
}

}  // namespace vexor
