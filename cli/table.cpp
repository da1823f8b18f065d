// Tables of numbers from CSV or TSV text, for --data and --at.
//
// The first line that is neither blank nor a comment ('#') decides the
// separator: a tab if it holds one, else a semicolon, else a comma, else
// runs of blanks.  A field may be quoted ("a, b", with "" for a quote).  The
// first line is a header when one of its fields is not a number.  Numbers
// are read with a decimal point whatever the locale; a field such as 3,1
// under a semicolon separator is refused with a word about decimal commas.
#include <cerrno>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "cli/cli.h"

namespace vexor::cli {

namespace {

std::string trim(const std::string& s) {
  std::size_t b = 0, e = s.size();
  while (b < e && (s[b] == ' ' || s[b] == '\t' || s[b] == '\r')) ++b;
  while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t' || s[e - 1] == '\r')) --e;
  return s.substr(b, e - b);
}

std::vector<std::string> split(const std::string& line, char sep) {
  std::vector<std::string> fields;
  if (sep == ' ') {
    std::size_t i = 0;
    while (i < line.size()) {
      while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')) ++i;
      if (i >= line.size()) break;
      std::size_t j = i;
      while (j < line.size() && line[j] != ' ' && line[j] != '\t' && line[j] != '\r') ++j;
      fields.push_back(line.substr(i, j - i));
      i = j;
    }
    return fields;
  }
  std::string f;
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quoted) {
      if (c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
        f += '"';
        ++i;
      } else if (c == '"') {
        quoted = false;
      } else {
        f += c;
      }
    } else if (c == '"' && trim(f).empty()) {
      quoted = true;
      f.clear();
    } else if (c == sep) {
      fields.push_back(trim(f));
      f.clear();
    } else {
      f += c;
    }
  }
  fields.push_back(trim(f));
  return fields;
}

bool tonumber(const std::string& f, double* v) {
  if (f.empty()) return false;
  char* end = nullptr;
  errno = 0;
  *v = std::strtod(f.c_str(), &end);
  return end && *end == '\0' && end != f.c_str();
}

bool looksdecimalcomma(const std::string& f) {
  const std::size_t c = f.find(',');
  return c != std::string::npos && c > 0 && c + 1 < f.size() &&
         std::isdigit(static_cast<unsigned char>(f[c - 1])) &&
         std::isdigit(static_cast<unsigned char>(f[c + 1]));
}

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

}  // namespace

bool readtable(const std::string& name, Table* t) {
  t->name = name == "-" ? "<stdin>" : name;
  std::string text;
  if (name == "-") {
    text = readstdin();
  } else {
    std::ifstream in(name, std::ios::binary);
    if (!in) {
      error("%s: cannot open: %s", t->name.c_str(), std::strerror(errno));
      return false;
    }
    text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad()) {
      error("%s: cannot read", t->name.c_str());
      return false;
    }
  }
  char sep = 0;
  long lineno = 0;
  std::size_t pos = 0;
  bool first = true;
  while (pos < text.size()) {
    std::size_t nl = text.find('\n', pos);
    if (nl == std::string::npos) nl = text.size();
    std::string line = text.substr(pos, nl - pos);
    pos = nl + 1;
    ++lineno;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const std::string bare = trim(line);
    if (bare.empty() || bare[0] == '#') continue;
    if (!sep) {
      sep = line.find('\t') != std::string::npos   ? '\t'
            : line.find(';') != std::string::npos  ? ';'
            : line.find(',') != std::string::npos  ? ','
                                                   : ' ';
    }
    std::vector<std::string> fields = split(line, sep);
    if (first) {
      first = false;
      t->columns = fields.size();
      bool header = false;
      double v;
      for (const std::string& f : fields)
        if (!tonumber(f, &v)) header = true;
      if (header) {
        for (const std::string& f : fields) {
          if (f.empty()) {
            error("%s:%ld: the header has an empty column name", t->name.c_str(), lineno);
            return false;
          }
        }
        t->hasheader = true;
        t->header = fields;
        continue;
      }
    }
    if (fields.size() != t->columns) {
      error("%s:%ld: %zu values where the %s has %zu", t->name.c_str(), lineno, fields.size(),
            t->hasheader ? "header" : "first row", t->columns);
      return false;
    }
    std::vector<double> row(fields.size());
    for (std::size_t c = 0; c < fields.size(); ++c) {
      if (!tonumber(fields[c], &row[c])) {
        const std::string what = fields[c].empty() ? "an empty value" : "'" + fields[c] + "'";
        if (looksdecimalcomma(fields[c]))
          error("%s:%ld: %s is not a number: numbers take a decimal point, not a comma",
                t->name.c_str(), lineno, what.c_str());
        else
          error("%s:%ld: %s in column %zu is not a number", t->name.c_str(), lineno, what.c_str(),
                c + 1);
        return false;
      }
    }
    t->rows.push_back(std::move(row));
    t->lines.push_back(lineno);
  }
  if (t->rows.empty()) {
    error("%s: no rows of numbers", t->name.c_str());
    return false;
  }
  return true;
}

bool mapcolumns(const Table& t, const std::vector<std::string>& wanted,
                const std::vector<bool>& optional, std::vector<int>* columns) {
  columns->assign(wanted.size(), -1);
  if (!t.hasheader) {
    std::size_t needed = 0;
    for (std::size_t i = 0; i < wanted.size(); ++i)
      if (!optional[i]) ++needed;
    if (t.columns < needed) {
      std::string names;
      for (std::size_t i = 0; i < wanted.size(); ++i)
        if (!optional[i]) names += (names.empty() ? "" : ", ") + wanted[i];
      error("%s: %zu columns and no header; %zu are needed (%s)", t.name.c_str(), t.columns, needed,
            names.c_str());
      return false;
    }
    // Without a header the columns are the wanted names in order; optional
    // ones are taken only when there is a column for every name.
    const bool all = t.columns >= wanted.size();
    int c = 0;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      if (optional[i] && !all) continue;
      (*columns)[i] = c++;
    }
    return true;
  }
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    for (std::size_t c = 0; c < t.header.size(); ++c) {
      if (lower(t.header[c]) == lower(wanted[i])) {
        if ((*columns)[i] >= 0) {
          error("%s: two columns are named %s", t.name.c_str(), wanted[i].c_str());
          return false;
        }
        (*columns)[i] = static_cast<int>(c);
      }
    }
    if ((*columns)[i] < 0 && !optional[i]) {
      std::string have;
      for (const std::string& h : t.header) have += (have.empty() ? "" : ", ") + h;
      error("%s: no column named %s (the header has: %s)", t.name.c_str(), wanted[i].c_str(),
            have.c_str());
      return false;
    }
  }
  return true;
}

}  // namespace vexor::cli
