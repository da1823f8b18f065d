// DATA: inline records, data files, DATASKIP, DATACOUNT and data errors.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kit/kit.h"
#include "kit/literals.h"
#include "compiler/compiler.h"
#include "compiler/statements.h"

namespace vexor {
namespace {

using kit::compileprog;
using kit::listing;

const char* const head = "VARIABLES x, y; PARAMETERS a; FUNCTION y = a*x;\n";

double at(int row, int col) { return datamat[row * nvar + col]; }
bool has(const std::string& text) { return listing().find(text) != std::string::npos; }

TEST(Data, InlineRecordsOnLines) {
  ASSERT_EQ(compileprog(std::string(head) + "DATA;\n1 2\n3 4\n"), 1) << listing();
  ASSERT_EQ(nobs, 2);
  EXPECT_EQ(at(0, 0), 1.0);
  EXPECT_EQ(at(0, 1), 2.0);
  EXPECT_EQ(at(1, 0), 3.0);
  EXPECT_EQ(at(1, 1), 4.0);
  EXPECT_EQ(invars[0]->lower, 1.0);
  EXPECT_EQ(invars[0]->upper, 3.0);
}

TEST(Data, InlineRecordsCutAtSemicolons) {
  ASSERT_EQ(compileprog(std::string(head) + "DATA;\n1,2;3,4;\n"), 1) << listing();
  ASSERT_EQ(nobs, 2);
  EXPECT_EQ(at(1, 0), 3.0);
  EXPECT_EQ(at(1, 1), 4.0);
}

TEST(Data, CommentsAndBlankRecords) {
  ASSERT_EQ(compileprog(std::string(head) + "DATA;\n1 2 // comment\n\n   \n// only a comment\n5 6\n"), 1)
      << listing();
  ASSERT_EQ(nobs, 2);
  EXPECT_EQ(at(0, 1), 2.0);
  EXPECT_EQ(at(1, 0), 5.0);
}

TEST(Data, CapacityGrowth) {
  std::string p = std::string(head) + "DATA;\n";
  for (int i = 0; i < 201; ++i) p += std::to_string(i) + " " + std::to_string(2 * i) + "\n";
  ASSERT_EQ(compileprog(p), 1) << listing();
  EXPECT_EQ(nobs, 201);
  EXPECT_EQ(datacap, 2220);
  EXPECT_EQ(at(200, 1), 400.0);
  EXPECT_EQ(at(199, 0), 199.0);
}

TEST(Data, DataCountSetsTheCapacity) {
  ASSERT_EQ(compileprog("DATACOUNT 3; " + std::string(head) + "DATA;\n1 2\n3 4\n5 6\n7 8\n"), 1);
  EXPECT_EQ(nobs, 4);
  EXPECT_EQ(datacap, 3 + 3 / 10 + 2000);
}

TEST(Data, TimesAndSigns) {
  ASSERT_EQ(compileprog(std::string(head) + "DATA;\n1:30 -.5e1\n1:00:00 +2.5D2\n"), 1) << listing();
  EXPECT_EQ(at(0, 0), 90.0);
  EXPECT_EQ(at(0, 1), -5.0);
  EXPECT_EQ(at(1, 0), 3600.0);
  EXPECT_EQ(at(1, 1), 250.0);
}

TEST(Data, ShortRecordEndsReading) {
  EXPECT_EQ(compileprog(std::string(head) + "DATA;\n1 2\n3\n5 6\n"), 0);
  EXPECT_EQ(nobs, 1);
  EXPECT_TRUE(has("Data record 2 has too few values: 3\n")) << listing();
}

TEST(Data, DataSkip) {
  ASSERT_EQ(compileprog("DATASKIP 2; " + std::string(head) + "DATA;\nx y\nunits\n1 2\n"), 1)
      << listing();
  EXPECT_EQ(nobs, 1);
  EXPECT_EQ(at(0, 1), 2.0);
}

TEST(Data, InvalidCharacterAndTwoPoints) {
  EXPECT_EQ(compileprog(std::string(head) + "DATA;\n1 abc\n1.2.3 4\n"), 0);
  EXPECT_TRUE(has("Invalid character on data record 1: abc\n")) << listing();
  EXPECT_TRUE(has("Two decimal points in number: 1.2.3 4\n")) << listing();
  EXPECT_EQ(at(0, 1), 0.0);
  EXPECT_EQ(at(1, 0), 0.0);
}

TEST(Data, OnlyNineDataMessages) {
  std::string p = std::string(head) + "DATA;\n";
  for (int i = 0; i < 12; ++i) p += "1 q\n";
  EXPECT_EQ(compileprog(p), 0);
  std::string l = listing();
  int count = 0;
  for (std::size_t at = l.find("Invalid character"); at != std::string::npos;
       at = l.find("Invalid character", at + 1))
    ++count;
  EXPECT_EQ(count, 9);
  EXPECT_EQ(ndataerr, 12);
}

TEST(Data, FromAFile) {
  kit::writefile("obs.dat", "1 2\r\n3 4\r\n\r\n5 6\r\n");
  ASSERT_EQ(compileprog(std::string(head) + "DATA \"obs\";\n"), 1) << listing();
  EXPECT_EQ(nobs, 3);
  EXPECT_EQ(at(2, 1), 6.0);
}

TEST(Data, FromAFileWithStatementsAfter) {
  kit::writefile("obs2.txt", "1 2\n3 4\n");
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DATA \"obs2.txt\"; FUNCTION y = a*x;\n"), 1)
      << listing();
  EXPECT_EQ(nobs, 2);
}

// A file is read in chunks of 64 KB: records of every length, lines that
// cross a chunk's end (some longer than a chunk, cut at the record's 50000
// characters), CR LF ends and a last line without a line feed give the
// matrix the same records give inline.
TEST(Data, AFileReadsAsTheSameRecordsInline) {
  std::string text;
  uint32_t seed = 12345;
  auto next = [&] { return seed = seed * 1103515245u + 12345u; };
  for (int r = 0; r < 3000; ++r) {
    text += std::to_string(static_cast<int>(next() % 100000) - 50000) + "." + std::to_string(next() % 1000);
    text += "E-" + std::to_string(next() % 5) + " " + std::to_string(r);
    // Blanks after the values; now and then more than a chunk of them.
    text += std::string(r % 97 == 0 ? 70000 + next() % 5000 : next() % 60, ' ');
    text += r % 3 ? "\n" : "\r\n";
  }
  text += "1.5 2.5";  // no line feed after the last record
  kit::writefile("chunks.dat", text);
  ASSERT_EQ(compileprog(std::string(head) + "DATA \"chunks\";\n"), 1) << listing().substr(0, 2000);
  ASSERT_EQ(nobs, 3001);
  EXPECT_EQ(at(3000, 1), 2.5);
  const std::vector<double> file(datamat, datamat + static_cast<std::size_t>(nobs) * nvar);
  // Inline, a last record without a line feed is not read (a trap the tool
  // warns of); the others are the same values.
  ASSERT_EQ(compileprog(std::string(head) + "DATA;\n" + text), 1);
  ASSERT_EQ(nobs, 3000);
  for (int32_t i = 0; i < nobs * nvar; ++i) ASSERT_EQ(datamat[i], file[i]) << i;
  // Many short lines, the last without a line feed.
  std::string lines;
  for (int r = 0; r < 20000; ++r) lines += std::to_string(r) + ".25 " + std::to_string(r % 7) + "e1\n";
  lines += "7 8";
  kit::writefile("many.dat", lines);
  ASSERT_EQ(compileprog(std::string(head) + "DATA \"many\";\n"), 1) << listing();
  EXPECT_EQ(nobs, 20001);
  EXPECT_EQ(at(12345, 0), 12345.25);
  EXPECT_EQ(at(12345, 1), 40.0);  // 12345 mod 7 = 4
  EXPECT_EQ(at(20000, 1), 8.0);
}

// datanum gathers up to 15 digits in an integer before it turns them into
// a double; the value must be the one the plain rule gives, m = m * 10 +
// digit in doubles, over every kind of literal: many digits, h:m:s parts,
// points, exponents.
double plainrule(const std::string& text) {
  const char* p = text.c_str();
  double sign = 1.0;
  if (*p == '+' || *p == '-') sign = *p++ == '-' ? -1.0 : 1.0;
  double m = 0, s = 0;
  int after = 0;
  bool point = false;
  for (;; ++p) {
    if (*p >= '0' && *p <= '9') {
      m = m * 10 + (*p - '0');
      if (point) ++after;
    } else if (*p == ':') {
      s = (s + m) * 60;
      m = 0;
    } else if (*p == '.') {
      point = true;
    } else {
      break;
    }
  }
  double v = s + m;
  long e = 0;
  if (*p == 'E' || *p == 'e' || *p == 'D' || *p == 'd') {
    ++p;
    long esign = 1;
    if (*p == '+' || *p == '-') esign = *p++ == '-' ? -1 : 1;
    while (*p >= '0' && *p <= '9') e = e * 10 + (*p++ - '0');
    e *= esign;
  }
  e -= after;
  if (e > 0) v *= std::pow(10.0, static_cast<double>(e));
  if (e < 0) v /= std::pow(10.0, static_cast<double>(-e));
  return sign * v;
}

// A large data file gives what the same records give inline (values,
// ranges, messages, the error count, the traps), with troubles far into
// the file and past the ninth message, and the traps placed on their lines.
TEST(Data, ABigFileReadsAsItsRecordsInline) {
  std::string text = "x y\n";  // a header: a trap, and an invalid character
  for (int r = 2; r <= 40000; ++r) {
    std::string rec = std::to_string(r) + ".5 " + std::to_string(r % 13) + "e-1";
    if (r == 16384 || r == 16385 || r == 32768 || (r > 20000 && r < 20100 && r % 9 == 0)) rec = std::to_string(r) + " q";
    if (r == 16390) rec = "1,5 2";      // a decimal comma, and so a value too many
    if (r == 30000) rec = "1.2.3 4";    // two decimal points
    if (r == 35000) rec = "1 2 3";      // a value too many
    if (r == 36000) rec = "   ";        // blank: no record
    if (r == 39000) rec = "5";          // too few values: the reading stops
    text += rec + (r % 5 ? "\n" : "\r\n");
  }
  kit::writefile("big.dat", text);
  struct Reading {
    int32_t nobs, ndataerr;
    std::vector<double> values, ranges;
    std::string messages;
    std::vector<std::string> traps;
  };
  auto read = [&](const std::string& program, bool lines) {
    compileprog(program);
    Reading g{nobs, ndataerr, std::vector<double>(datamat, datamat + static_cast<std::size_t>(nobs) * nvar), {}, {}, {}};
    for (int32_t c = 0; c < nvar; ++c) {
      g.ranges.push_back(invars[c]->lower);
      g.ranges.push_back(invars[c]->upper);
    }
    const std::string l = listing();
    g.messages = l.substr(l.find("Invalid"));
    for (int32_t i = 0; i < ntraps; ++i)
      g.traps.push_back(std::to_string(traps[i].kind) + " " + std::to_string(traps[i].count) + " " + traps[i].text +
                        (lines ? " line " + std::to_string(traps[i].fileline) : ""));
    return g;
  };
  const Reading one = read(std::string(head) + "DATA \"big\";\n", true);
  const Reading inl = read(std::string(head) + "DATA;\n" + text, false);
  EXPECT_EQ(one.nobs, 38998);  // lines 1 to 38999 but the blank one
  EXPECT_EQ(inl.nobs, one.nobs);
  EXPECT_EQ(inl.ndataerr, one.ndataerr);
  EXPECT_EQ(inl.values, one.values);
  EXPECT_EQ(inl.ranges, one.ranges);
  // (Inline, the lines after the short record go on as program text.)
  EXPECT_EQ(inl.messages.substr(0, one.messages.size()), one.messages);
  ASSERT_EQ(inl.traps.size(), one.traps.size());
  for (std::size_t i = 0; i < one.traps.size(); ++i) EXPECT_EQ(one.traps[i].rfind(inl.traps[i], 0), 0u) << i;
  // The header's messages first (neither of its values reads); 14 records
  // with a "q", the two decimal points and the short record.
  EXPECT_EQ(one.messages.rfind("Invalid character on data record 1: x y\n\n"
                               "Invalid character on data record 1: x y\n\n"
                               "Invalid character on data record 16384: q\n\n", 0), 0u) << one.messages;
  EXPECT_EQ(one.ndataerr, 2 + 14 + 1 + 1);
  const auto row = [&](int32_t r, int32_t c) { return one.values[static_cast<std::size_t>(r) * 2 + c]; };
  EXPECT_EQ(row(16383, 0), 16384.0);  // line 16384: its "q" read as 0
  EXPECT_EQ(row(16383, 1), 0.0);
  EXPECT_EQ(row(16389, 0), 1.0);      // line 16390: "1,5 2"
  EXPECT_EQ(row(16389, 1), 5.0);
  EXPECT_EQ(row(38997, 0), 38999.5);  // the last line read
  ASSERT_EQ(one.traps.size(), 3u);
  EXPECT_EQ(one.traps[0].rfind(std::to_string(TRAP_HEADERLIKE) + " 1 x y line 1", 0), 0u) << one.traps[0];
  EXPECT_EQ(one.traps[1], std::to_string(TRAP_DECIMALCOMMA) + " 1 1,5 2 line 16390");
  EXPECT_EQ(one.traps[2], std::to_string(TRAP_EXTRAVALUES) + " 2 1,5 2 line 16390");
}

TEST(Data, NumbersAreReadByThePlainRule) {
  uint32_t seed = 2026;
  auto next = [&](uint32_t n) { return (seed = seed * 1664525u + 1013904223u) % n; };
  auto digits = [&](uint32_t count) {
    std::string d;
    for (uint32_t i = 0; i < count; ++i) d += static_cast<char>('0' + next(10));
    return d;
  };
  for (int k = 0; k < 200000; ++k) {
    std::string t = next(4) == 0 ? "-" : "";
    if (next(8) == 0) t += digits(1 + next(3)) + ":" + digits(1 + next(3)) + ":";
    t += digits(1 + next(25));
    if (next(2)) t += "." + digits(next(25));
    if (next(3) == 0) t += std::string(1, "EeDd"[next(4)]) + (next(2) ? "-" : "+") + std::to_string(next(330));
    const char* pos = t.c_str();
    double v = 0;
    ASSERT_EQ(datanum(&pos, &v, 1), 1) << t;
    const double want = plainrule(t);
    ASSERT_EQ(std::memcmp(&v, &want, sizeof v), 0) << t << ": " << v << " vs " << want;
  }
}

// The data reader's numbers against strtod over 300,000 generated
// literals with and without signs: bit for bit where the reading rule is
// exact, within its roundings elsewhere, and as the rule says past 10^308
// (kit/literals.h).
TEST(Data, NumbersAgreeWithAnIndependentReading) {
  const std::vector<std::string> lits = kit::numberliterals(4021, 300000);
  int count[4] = {}, differ[4] = {};
  for (std::size_t i = 0; i < lits.size(); ++i) {
    const std::string& lit = lits[i];
    const char* sign = i % 3 == 0 ? "-" : i % 3 == 1 ? "+" : "";
    const std::string text = sign + lit + " ";
    const char* pos = text.c_str();
    double v = 0;
    ASSERT_EQ(datanum(&pos, &v, 1), 1) << text;
    ASSERT_EQ(*pos, ' ') << text;
    const double unsigned_value = *sign == '-' ? -v : v;
    const kit::LiteralVerdict verdict = kit::literalfault(lit, unsigned_value);
    ASSERT_EQ(verdict.fault, "") << text << ": the data reader gives " << v << ", strtod "
                                 << verdict.reference;
    if (*sign == '-' && !std::isnan(v)) {
      ASSERT_TRUE(std::signbit(v)) << text;
    }
    ++count[verdict.cls];
    if (std::memcmp(&unsigned_value, &verdict.reference, sizeof v) != 0) ++differ[verdict.cls];
  }
  std::printf("data literals: %d exact (%d differ), %d rounded (%d differ), %d past 10^308 (%d differ), "
              "%d overflowing (%d differ)\n",
              count[0], differ[0], count[1], differ[1], count[2], differ[2], count[3], differ[3]);
  EXPECT_GT(count[kit::LIT_EXACT], 50000);
  EXPECT_GT(count[kit::LIT_ROUNDED], 50000);
}

// The powers of ten of a number's exponent are those std::pow gives.
TEST(Data, PowersOfTenAreThoseOfPow) {
  for (long e = 0; e <= 400; ++e) {
    const double want = std::pow(10.0, static_cast<double>(e));
    ASSERT_EQ(powten(e), want) << e;
  }
}

TEST(Data, MissingFile) {
  EXPECT_EQ(compileprog(std::string(head) + "DATA \"nowhere\";\n"), 0);
  EXPECT_TRUE(has("Error: Unable to open data file: nowhere.dat\n")) << listing();
}

TEST(Data, FileNameMustBeQuoted) {
  EXPECT_EQ(compileprog(std::string(head) + "DATA obs;\n1 2\n"), 0);
  EXPECT_TRUE(has("Error: The file name must be enclosed in quote signs\n"));
}

TEST(Data, HugeRecord) {
  // A record keeps its first 50000 characters: the "8" after 60000 blanks
  // is lost, so the record is one value short.  Inline ...
  const std::string rec = "7" + std::string(60000, ' ') + "8\n";
  const std::string report =
      "Data record 1 has too few values: 7" + std::string(79, ' ') + "\n\n";
  EXPECT_EQ(compileprog(std::string(head) + "DATA;\n" + rec + "1 2\n"), 0);
  EXPECT_EQ(nobs, 0);
  EXPECT_TRUE(has(report)) << listing();
  // ... and from a file.
  kit::writefile("huge.dat", rec + "1 2\n");
  EXPECT_EQ(compileprog(std::string(head) + "DATA \"huge\";\n"), 0);
  EXPECT_EQ(nobs, 0);
  EXPECT_TRUE(has(report)) << listing();
  // Up to the limit a record is whole.
  const std::string fits = "7" + std::string(49990, ' ') + "8\n";
  ASSERT_EQ(compileprog(std::string(head) + "DATA;\n" + fits + "1 2\n"), 1) << listing();
  EXPECT_EQ(nobs, 2);
  EXPECT_EQ(at(0, 1), 8.0);
}

TEST(Data, FileWithBadRecords) {
  kit::writefile("bad.dat", "1 2\n3 x\n5 6\n7\n9 10\n");
  EXPECT_EQ(compileprog(std::string(head) + "DATA \"bad\";\n"), 0);
  // The invalid character gives 0 and the record stays; the short record
  // ends the reading, with the rows before it kept.
  std::string l = listing();
  EXPECT_EQ(l.substr(l.find("Invalid")),
            "Invalid character on data record 2: x\n\n"
            "Data record 4 has too few values: 7\n\n");
  ASSERT_EQ(nobs, 3);
  EXPECT_EQ(at(1, 0), 3.0);
  EXPECT_EQ(at(1, 1), 0.0);
  EXPECT_EQ(at(2, 1), 6.0);
  EXPECT_EQ(ndataerr, 2);
}

TEST(Data, LongMessageKeepsItsLineEnd) {
  // The message would be 2036 characters; it is cut to 597 and keeps its
  // line end, and the empty line after it follows as for any data message.
  const std::string prefix = "Invalid character on data record 1: ";
  EXPECT_EQ(compileprog(std::string(head) + "DATA;\n1 " + std::string(2000, 'z') + "\n"), 0);
  std::string l = listing();
  EXPECT_EQ(l.substr(l.find(prefix)), prefix + std::string(597 - prefix.size(), 'z') + "\n\n");
  // A message that just fits is not cut.
  EXPECT_EQ(compileprog(std::string(head) + "DATA;\n1 " + std::string(597 - prefix.size(), 'q') +
                        "\n"),
            0);
  l = listing();
  EXPECT_EQ(l.substr(l.find(prefix)), prefix + std::string(597 - prefix.size(), 'q') + "\n\n");
}

TEST(Data, SkipAndCountNeedANumber) {
  EXPECT_EQ(compileprog("DATASKIP x; " + std::string(head)), 0);
  EXPECT_TRUE(has("     1: DATASKIP x;\nError: Syntax error: numeric value missing\n")) << listing();
  EXPECT_EQ(compileprog("DATACOUNT = ;\n" + std::string(head)), 0);
  EXPECT_TRUE(has("     1: DATACOUNT = ;\nError: Syntax error: numeric value missing\n"))
      << listing();
  EXPECT_EQ(compileprog("DATACOUNT -3;\n" + std::string(head)), 0);
  EXPECT_TRUE(has("Error: Syntax error: numeric value missing\n")) << listing();
}

TEST(Data, SkipAndCountBeyondTheIntegerRange) {
  ASSERT_EQ(compileprog("DATACOUNT 1e12; " + std::string(head)), 1) << listing();
  EXPECT_EQ(datacount, INT32_MAX);
  ASSERT_EQ(compileprog("DATASKIP 1e12; " + std::string(head) + "DATA;\n1 2\n3 4\n"), 1)
      << listing();
  EXPECT_EQ(skiprecs, INT32_MAX);
  EXPECT_EQ(nobs, 0);  // every record skipped
  ASSERT_EQ(compileprog("DATASKIP 1e400; " + std::string(head) + "DATA;\n1 2\n3 4\n"), 1)
      << listing();
  EXPECT_EQ(skiprecs, 0);  // infinite counts as 0
  EXPECT_EQ(nobs, 2);
}

TEST(Data, MinimisationHasRoomForEveryParameter) {
  ASSERT_EQ(compileprog("PARAMETERS a, b, c; FUNCTION a*a + b*b + c*c;\nDATA;\n\n"), 1) << listing();
  EXPECT_EQ(minimize, 1);
  EXPECT_EQ(nobs, 3);
}

}  // namespace
}  // namespace vexor
