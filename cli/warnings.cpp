// The warnings about a program's text and data: places the language reads
// by its rules but that are probably not meant (the traps the engine notes
// while compiling), and data values that are infinite or not a number.
// They go to standard error in the compilers' form, FILE:LINE: warning:
// ..., LINE being the line of the file, with the listing's line number
// beside it where the two differ; the listing itself is not touched.  Under
// --strict they are errors.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "api/tool.h"
#include "cli/cli.h"

namespace vexor::cli {

namespace {

// At most this many non-finite data values are named; the rest are counted.
constexpr int MAXNAMED = 5;

// The text of a trap for a message: its first 60 characters, blanks at the
// ends dropped.
std::string excerpt(const std::string& text) {
  std::size_t b = text.find_first_not_of(" \t");
  if (b == std::string::npos) return "";
  std::size_t e = text.find_last_not_of(" \t\r\n");
  std::string s = text.substr(b, e - b + 1);
  if (s.size() > 60) s = s.substr(0, 57) + "...";
  return s;
}

// The first "digits,digits" of a record.
std::string decimalcomma(const std::string& text) {
  for (std::size_t i = 1; i + 1 < text.size(); ++i) {
    if (text[i] != ',' || !std::isdigit(static_cast<unsigned char>(text[i - 1])) ||
        !std::isdigit(static_cast<unsigned char>(text[i + 1])))
      continue;
    std::size_t b = i, e = i + 1;
    while (b > 0 && (std::isdigit(static_cast<unsigned char>(text[b - 1])) || text[b - 1] == '.')) --b;
    while (e < text.size() && (std::isdigit(static_cast<unsigned char>(text[e])) || text[e] == '.')) ++e;
    return text.substr(b, e - b);
  }
  return "";
}

std::string more(int count, const char* what) {
  if (count <= 1) return "";
  char buf[80];
  std::snprintf(buf, sizeof buf, " (%d %s in all)", count, what);
  return buf;
}

void tell(Session& s, const std::string& file, long line, long number, const std::string& text) {
  std::string t = text;
  if (number > 0 && number != line) t += " (listing line " + std::to_string(number) + ")";
  located(file, line, s.strict ? "error" : "warning", "%s", t.c_str());
  ++s.warnings;
}

void warntraps(Session& s) {
  const tool::Program p = tool::program();
  const tool::Limits lim = tool::limits();
  const std::string data = tool::datafile();
  for (const tool::Trap& t : tool::traps()) {
    // The program's own data are replaced by --data: their traps do not
    // matter.
    const bool datatrap = t.kind == tool::TRAP_EXTRAVALUES || t.kind == tool::TRAP_DECIMALCOMMA ||
                          t.kind == tool::TRAP_HEADERLIKE || t.datafile;
    if (s.dataoption && datatrap) continue;
    const std::string file = t.datafile ? data : s.shown;
    const std::string x = excerpt(t.text);
    std::string m;
    switch (t.kind) {
      case tool::TRAP_NEGPOW:
        m = "a minus sign binds tighter than ^: -x^2 is (-x)^2 here; write -(x^2) if that is "
            "meant, or (-x)^2 to keep it: " + x;
        break;
      case tool::TRAP_EXTRAVALUES:
        m = "the data record has more values than the " + std::to_string(p.variables.size()) +
            " VARIABLES; the extra values are ignored: " + x + more(t.count, "records");
        break;
      case tool::TRAP_DECIMALCOMMA: {
        const std::string n = decimalcomma(t.text);
        m = "'" + n + "' reads as two values (a comma separates values; numbers take a decimal "
            "point): " + x + more(t.count, "records");
        break;
      }
      case tool::TRAP_HEADERLIKE:
        m = "the first data record looks like a header line: " + x +
            "; name the columns with --data FILE, or skip the line with DATASKIP 1";
        break;
      case tool::TRAP_LONGLINE:
        m = "the line is longer than " +
            std::to_string(t.datafile || t.number == 0 ? lim.record : lim.line) +
            " characters; the rest of it is not read";
        break;
      case tool::TRAP_COMMENTSEMI:
        m = "a ';' inside a // comment ends the comment: the rest of the line is read as "
            "program text: " + x;
        break;
      case tool::TRAP_NOLINEFEED:
        m = "the last line has no line feed, so it is never read: " + x;
        break;
      default:
        continue;
    }
    tell(s, file, t.line, t.number, m);
  }
}

// The data matrix is read in place (a call per cell cost a tenth of the
// time of checking a million-row file).
void warnvalues(Session& s) {
  int32_t rows = 0, cols = 0;
  const double* d = tool::data(&rows, &cols);
  const std::vector<std::string> names = tool::program().variables;
  long named = 0, rest = 0;
  for (long i = 0; i < rows; ++i) {
    for (long c = 0; c < cols; ++c) {
      const double v = d[static_cast<std::size_t>(i) * cols + c];
      if (std::isfinite(v)) continue;
      if (named < MAXNAMED) {
        const char* name = c < static_cast<long>(names.size()) ? names[c].c_str() : "";
        located(s.shown, 0, s.strict ? "error" : "warning", "data record %ld, variable %s: the value is %s",
                i + 1, name, std::isnan(v) ? "not a number" : "infinite");
        ++named;
      } else {
        ++rest;
      }
      ++s.warnings;
    }
  }
  if (rest > 0)
    located(s.shown, 0, s.strict ? "error" : "warning", "%ld more values are infinite or not a number", rest);
}

}  // namespace

void warnprogram(Session& s) {
  warntraps(s);
  warnvalues(s);
}

}  // namespace vexor::cli
