#include "tools/virtual-router/device_folder.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

namespace virtual_router {

namespace fs = std::filesystem;

namespace {

constexpr const char* kMark = "/.virtual-router";

std::string fresh_temporary_folder() {
  std::string pattern = (fs::temp_directory_path() / "virtual-router.XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr)
    throw std::system_error(errno, std::generic_category(), pattern);
  return pattern;
}

std::string named_folder(const std::string& wanted) {
  const fs::path root = fs::absolute(wanted).lexically_normal();
  fs::create_directories(root);
  std::string text = fs::canonical(root).string();
  if (text == "/" || (!fs::is_empty(text) && !fs::exists(text + kMark)))
    throw std::runtime_error(text + " holds something else than a virtual router");
  return text;
}

void empty_folder(const fs::path& folder) {
  fs::create_directories(folder);
  for (const auto& entry : fs::directory_iterator(folder))
    fs::remove_all(entry.path());
}

} // namespace

const std::vector<ToolLink>& tool_links() {
  static const std::vector<ToolLink> links = {
      {"nvram", "nvram-virtual"},
      {"mtd", "mtd-virtual"},
      {"nvram_mtd_read", "nvram_mtd_read-virtual"},
      {"nvram_mtd_write", "nvram_mtd_write-virtual"},
      {"killall", "virtual-tools"},
      {"spi", "virtual-tools"},
      {"eroute", "virtual-tools"},
      {"rm", "virtual-tools"},
  };
  return links;
}

DeviceFolder::DeviceFolder(const std::string& wanted)
    : root_(wanted.empty() ? fresh_temporary_folder() : named_folder(wanted)),
      temporary_(wanted.empty()) {
  lock();
  clear_memory();
}

DeviceFolder::~DeviceFolder() {
  std::error_code ignored; // nobody is left who could be told
  if (temporary_)
    fs::remove_all(root_, ignored);
  if (lock_fd_ >= 0)
    close(lock_fd_);
}

void DeviceFolder::lock() {
  lock_fd_ = open((root_ + kMark).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (lock_fd_ < 0)
    throw std::system_error(errno, std::generic_category(), root_ + kMark);
  if (flock(lock_fd_, LOCK_EX | LOCK_NB) != 0) {
    close(lock_fd_);
    throw std::runtime_error("another virtual router lives in " + root_);
  }
}

void DeviceFolder::clear_memory() const {
  for (const char* kept : {"/bin", "/dev", "/dev/mtd", "/flash", "/proc/net"})
    fs::create_directories(path(kept));
  for (const char* emptied : {"/tmp", "/run"})
    empty_folder(path(emptied));
}

std::vector<std::string> DeviceFolder::link_tools(const std::string& program_folder) const {
  std::vector<std::string> missing;
  for (const auto& link : tool_links()) {
    const fs::path place = path(std::string("/bin/") + link.name);
    const fs::path program = fs::path(program_folder) / link.program;
    fs::remove(place);
    if (fs::exists(program))
      fs::create_symlink(program, place);
    else
      missing.emplace_back(link.name);
  }
  return missing;
}

} // namespace virtual_router
