// The registration-script registrar (see registrar.h for the syntax and what
// registering and unregistering do).
#include "registrar.h"

#include <cerrno>
#include <cwchar>
#include <cwctype>
#include <memory>
#include <vector>

namespace vexorcom {

namespace {

enum class Mark { None, ForceRemove, NoRemove, Delete };

// One line of the script: a key with its default value, named values and
// subkeys, or a named value.
struct Entry {
  bool isvalue = false;
  Mark mark = Mark::None;
  std::wstring name;
  bool hasdata = false;  // a key's default value, or always for a value
  DWORD type = REG_SZ;
  std::vector<BYTE> data;
  std::vector<Entry> children;
};

struct Root {
  HKEY key;
  std::vector<Entry> entries;
};

struct Token {
  std::wstring text;
  bool quoted = false;
  int line = 0;
};

// Thrown by the parser with a description of the syntax error; caught in
// runscript, so no exception leaves this file.
struct SyntaxError {
  std::wstring what;
};

std::wstring widen(const std::string& s) {
  if (s.empty()) return {};
  int n = MultiByteToWideChar(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), nullptr, 0);
  std::wstring w(static_cast<std::size_t>(n > 0 ? n : 0), L'\0');
  if (n > 0) MultiByteToWideChar(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), w.data(), n);
  return w;
}

bool iequal(const std::wstring& a, const wchar_t* b) { return _wcsicmp(a.c_str(), b) == 0; }

std::wstring where(const Token& t) { return L" (line " + std::to_wstring(t.line) + L")"; }

std::vector<Token> tokenize(const std::wstring& text) {
  std::vector<Token> out;
  int line = 1;
  std::size_t i = 0, n = text.size();
  while (i < n) {
    wchar_t c = text[i];
    if (c == L'\n') {
      ++line;
      ++i;
      continue;
    }
    if (std::iswspace(c) || c == 0xFEFF) {  // white space, or a byte-order mark
      ++i;
      continue;
    }
    Token t;
    t.line = line;
    if (c == L'\'') {
      t.quoted = true;
      ++i;
      for (;;) {
        if (i >= n) throw SyntaxError{L"unterminated quoted text" + where(t)};
        if (text[i] == L'\'') {
          if (i + 1 < n && text[i + 1] == L'\'') {
            t.text += L'\'';
            i += 2;
            continue;
          }
          ++i;
          break;
        }
        if (text[i] == L'\n') ++line;
        t.text += text[i++];
      }
    } else {
      while (i < n && !std::iswspace(text[i])) t.text += text[i++];
    }
    out.push_back(std::move(t));
  }
  return out;
}

class Parser {
 public:
  Parser(std::vector<Token> tokens, const Replacements& vars) : toks_(std::move(tokens)), vars_(vars) {}

  std::vector<Root> script() {
    std::vector<Root> roots;
    while (pos_ < toks_.size()) {
      const Token& t = next();
      Root r{rootkey(t), {}};
      expect(L"{");
      while (!peekpunct(L"}")) {
        if (pos_ >= toks_.size()) throw SyntaxError{L"missing } at the end of the script"};
        r.entries.push_back(entry());
      }
      next();
      roots.push_back(std::move(r));
    }
    return roots;
  }

 private:
  std::vector<Token> toks_;
  const Replacements& vars_;
  std::size_t pos_ = 0;

  const Token& next() {
    if (pos_ >= toks_.size()) throw SyntaxError{L"unexpected end of the script"};
    return toks_[pos_++];
  }

  static bool ispunct(const Token& t) {
    return !t.quoted && (t.text == L"{" || t.text == L"}" || t.text == L"=");
  }

  bool peekpunct(const wchar_t* p) const {
    return pos_ < toks_.size() && !toks_[pos_].quoted && toks_[pos_].text == p;
  }

  void expect(const wchar_t* p) {
    const Token& t = next();
    if (t.quoted || t.text != p) throw SyntaxError{std::wstring(L"expected ") + p + L", found " + t.text + where(t)};
  }

  static HKEY rootkey(const Token& t) {
    struct Name {
      const wchar_t* shortname;
      const wchar_t* longname;
      HKEY key;
    };
    static const Name names[] = {
        {L"HKCR", L"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},
        {L"HKCU", L"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
        {L"HKLM", L"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
        {L"HKU", L"HKEY_USERS", HKEY_USERS},
        {L"HKCC", L"HKEY_CURRENT_CONFIG", HKEY_CURRENT_CONFIG},
    };
    if (!t.quoted)
      for (const Name& n : names)
        if (iequal(t.text, n.shortname) || iequal(t.text, n.longname)) return n.key;
    throw SyntaxError{L"unknown root key " + t.text + where(t)};
  }

  // The token's text with %NAME% replaced and %% made %.
  std::wstring substitute(const Token& t) const {
    std::wstring out;
    const std::wstring& s = t.text;
    for (std::size_t i = 0; i < s.size(); ++i) {
      if (s[i] != L'%') {
        out += s[i];
        continue;
      }
      std::size_t end = s.find(L'%', i + 1);
      if (end == std::wstring::npos) throw SyntaxError{L"unmatched % in " + s + where(t)};
      std::wstring name = s.substr(i + 1, end - i - 1);
      if (name.empty()) {
        out += L'%';
      } else {
        auto it = vars_.find(name);
        if (it == vars_.end()) throw SyntaxError{L"no value for %" + name + L"%" + where(t)};
        out += it->second;
      }
      i = end;
    }
    return out;
  }

  std::wstring name() {
    const Token& t = next();
    if (ispunct(t)) throw SyntaxError{L"expected a name, found " + t.text + where(t)};
    std::wstring s = substitute(t);
    if (s.empty()) throw SyntaxError{L"empty name" + where(t)};
    return s;
  }

  // TYPE DATA after the '='.
  void data(Entry& e) {
    const Token& type = next();
    const Token& value = next();
    if (ispunct(value)) throw SyntaxError{L"expected a value, found " + value.text + where(value)};
    std::wstring text = substitute(value);
    e.hasdata = true;
    if (!type.quoted && (iequal(type.text, L"s") || iequal(type.text, L"e"))) {
      e.type = iequal(type.text, L"s") ? REG_SZ : REG_EXPAND_SZ;
      const BYTE* p = reinterpret_cast<const BYTE*>(text.c_str());
      e.data.assign(p, p + (text.size() + 1) * sizeof(wchar_t));
    } else if (!type.quoted && iequal(type.text, L"d")) {
      wchar_t* end = nullptr;
      errno = 0;
      unsigned long long v = std::wcstoull(text.c_str(), &end, 0);
      if (text.empty() || *end || errno || v > 0xFFFFFFFFull)
        throw SyntaxError{L"bad number " + text + where(value)};
      DWORD d = static_cast<DWORD>(v);
      e.type = REG_DWORD;
      const BYTE* p = reinterpret_cast<const BYTE*>(&d);
      e.data.assign(p, p + sizeof d);
    } else if (!type.quoted && iequal(type.text, L"b")) {
      if (text.size() % 2) throw SyntaxError{L"odd number of hex digits in " + text + where(value)};
      e.type = REG_BINARY;
      for (std::size_t i = 0; i < text.size(); i += 2) {
        int hi = hexdigit(text[i]), lo = hexdigit(text[i + 1]);
        if (hi < 0 || lo < 0) throw SyntaxError{L"bad hex digits in " + text + where(value)};
        e.data.push_back(static_cast<BYTE>(hi * 16 + lo));
      }
    } else {
      throw SyntaxError{L"unknown value type " + type.text + where(type)};
    }
  }

  static int hexdigit(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    return -1;
  }

  Entry entry() {
    Entry e;
    const Token& first = toks_[pos_];
    if (!first.quoted && iequal(first.text, L"val")) {
      next();
      e.isvalue = true;
      e.name = name();
      expect(L"=");
      data(e);
      return e;
    }
    if (!first.quoted) {
      if (iequal(first.text, L"ForceRemove")) e.mark = Mark::ForceRemove;
      if (iequal(first.text, L"NoRemove")) e.mark = Mark::NoRemove;
      if (iequal(first.text, L"Delete")) e.mark = Mark::Delete;
      if (e.mark != Mark::None) next();
    }
    e.name = name();
    if (peekpunct(L"=")) {
      next();
      data(e);
    }
    if (peekpunct(L"{")) {
      next();
      while (!peekpunct(L"}")) {
        if (pos_ >= toks_.size()) throw SyntaxError{L"missing } after key " + e.name};
        e.children.push_back(entry());
      }
      next();
    }
    return e;
  }
};

// Deletes a key with everything below it; a key that is not there is fine.
LONG deletetree(HKEY parent, const std::wstring& name) {
  LONG rc = RegDeleteTreeW(parent, name.c_str());
  return rc == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : rc;
}

LONG setvalue(HKEY key, const wchar_t* name, const Entry& e) {
  return RegSetValueExW(key, name, 0, e.type, e.data.data(), static_cast<DWORD>(e.data.size()));
}

// Registering: the first failure ends the walk.
LONG add(HKEY parent, const Entry& e) {
  if (e.isvalue) return setvalue(parent, e.name.c_str(), e);
  if (e.mark == Mark::Delete) return deletetree(parent, e.name);
  if (e.mark == Mark::ForceRemove) {
    LONG rc = deletetree(parent, e.name);
    if (rc != ERROR_SUCCESS) return rc;
  }
  HKEY key = nullptr;
  LONG rc = RegCreateKeyExW(parent, e.name.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
  if (rc != ERROR_SUCCESS) return rc;
  if (e.hasdata) rc = setvalue(key, nullptr, e);
  for (const Entry& c : e.children) {
    if (rc != ERROR_SUCCESS) break;
    rc = add(key, c);
  }
  RegCloseKey(key);
  return rc;
}

// Unregistering: goes on after a failure and returns the first one.
LONG remove(HKEY parent, const Entry& e) {
  if (e.isvalue || e.mark == Mark::Delete) return ERROR_SUCCESS;  // values: see below
  if (e.mark == Mark::ForceRemove) return deletetree(parent, e.name);
  HKEY key = nullptr;
  LONG rc = RegOpenKeyExW(parent, e.name.c_str(), 0, KEY_ALL_ACCESS, &key);
  if (rc == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
  if (rc != ERROR_SUCCESS) return rc;
  LONG first = ERROR_SUCCESS;
  for (const Entry& c : e.children) {
    LONG r = ERROR_SUCCESS;
    if (c.isvalue) {
      if (e.mark != Mark::NoRemove) {
        r = RegDeleteValueW(key, c.name.c_str());
        if (r == ERROR_FILE_NOT_FOUND) r = ERROR_SUCCESS;
      }
    } else {
      r = remove(key, c);
    }
    if (first == ERROR_SUCCESS) first = r;
  }
  DWORD subkeys = 0;
  LONG q = RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr);
  RegCloseKey(key);
  if (e.mark != Mark::NoRemove && q == ERROR_SUCCESS && subkeys == 0) {
    LONG r = RegDeleteKeyW(parent, e.name.c_str());
    if (r != ERROR_SUCCESS && r != ERROR_FILE_NOT_FOUND && first == ERROR_SUCCESS) first = r;
  }
  if (q != ERROR_SUCCESS && first == ERROR_SUCCESS) first = q;
  return first;
}

}  // namespace

HRESULT runscript(const std::string& script, const Replacements& vars, bool reg, std::wstring* error) {
  std::vector<Root> roots;
  try {
    roots = Parser(tokenize(widen(script)), vars).script();
  } catch (const SyntaxError& e) {
    if (error) *error = e.what;
    return E_INVALIDARG;
  }
  LONG first = ERROR_SUCCESS;
  for (const Root& r : roots) {
    for (const Entry& e : r.entries) {
      LONG rc = reg ? add(r.key, e) : remove(r.key, e);
      if (rc != ERROR_SUCCESS && first == ERROR_SUCCESS) first = rc;
      if (rc != ERROR_SUCCESS && reg) return HRESULT_FROM_WIN32(rc);
    }
  }
  return HRESULT_FROM_WIN32(first);
}

}  // namespace vexorcom
