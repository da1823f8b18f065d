#include "kit/kit.h"

#include <cstdio>
#include <regex>

#include "support/support.h"

namespace vexor::kit {

std::string listing(bool crlf) {
  std::string s;
  lstforeach([&](const char* t) { s += t; });
  return crlf ? s : lfonly(s);
}

std::string lfonly(const std::string& text) {
  std::string s;
  s.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i)
    if (!(text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n')) s += text[i];
  return s;
}

std::string maskclock(const std::string& text, const std::string& when,
                      const std::string& runtime) {
  static const std::regex clock(
      "Analysis completed [ 0-9]{2}-[A-Z][a-z]{2}-[0-9]{4} [0-9]{2}:[0-9]{2}\\.  Runtime = "
      "[0-9]+\\.[0-9]{2} seconds\\.");
  return std::regex_replace(text, clock,
                            "Analysis completed " + when + ".  Runtime = " + runtime + " seconds.");
}

std::string readstream(FILE* f) {
  std::rewind(f);
  std::string s;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
  return s;
}

std::string readfile(const std::string& name) {
  FILE* f = std::fopen(name.c_str(), "rb");
  if (!f) return "<missing>";
  std::string s = readstream(f);
  std::fclose(f);
  return s;
}

bool writefile(const std::string& name, const std::string& text) {
  FILE* f = std::fopen(name.c_str(), "wb");
  if (!f) return false;
  const bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  return std::fclose(f) == 0 && ok;
}

}  // namespace vexor::kit
