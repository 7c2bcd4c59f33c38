#include "tools/virtual-router/text_file.h"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <system_error>
#include <unistd.h>

namespace virtual_router {

namespace {

[[noreturn]] void fail(const std::string& path) {
  throw std::system_error(errno, std::generic_category(), path);
}

void write_with(const std::string& path, const std::string& content, std::ios::openmode mode) {
  std::ofstream file(path, mode | std::ios::binary);
  file << content;
  file.flush();
  if (!file)
    fail(path);
}

} // namespace

std::optional<std::string> read_file(const std::string& path) {
  try {
    std::ifstream file(path, std::ios::binary);
    if (!file)
      return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
  } catch (const std::ios_base::failure&) { // a folder, or the /proc file of a process that ended
    return std::nullopt;
  }
}

void replace_file(const std::string& path, const std::string& content) {
  const std::string fresh = path + ".new" + std::to_string(getpid());
  write_with(fresh, content, std::ios::trunc);
  if (std::rename(fresh.c_str(), path.c_str()) != 0)
    fail(path);
}

void append_line(const std::string& path, const std::string& line) {
  write_with(path, line + "\n", std::ios::app);
}

} // namespace virtual_router
