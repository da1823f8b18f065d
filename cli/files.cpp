// Files the tool writes itself (the listing with --listing, the plots):
// whole or not at all.  The text goes to a temporary file beside the target
// (so the rename stays on one file system), which is renamed into place
// once it is written and closed; on any failure the temporary file is
// removed and the target is left as it was.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>

#include "cli/cli.h"

namespace vexor::cli {

bool writeatomic(const std::string& path, const std::string& text, std::string* why) {
  std::random_device rd;
  const std::string temp = path + ".tmp" + std::to_string(rd() % 1000000);
  FILE* f = std::fopen(temp.c_str(), "wb");
  if (!f) {
    *why = std::strerror(errno);
    return false;
  }
  bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  int err = ok ? 0 : errno;
  if (std::fclose(f) != 0 && ok) {
    ok = false;
    err = errno;
  }
  if (ok) {
    std::error_code ec;
    std::filesystem::rename(temp, path, ec);
    if (!ec) return true;
    *why = ec.message();
  } else {
    *why = std::strerror(err ? err : EIO);
  }
  std::remove(temp.c_str());
  return false;
}

}  // namespace vexor::cli
