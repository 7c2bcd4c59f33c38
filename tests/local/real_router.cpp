#include "tests/local/real_router.h"

#include "platform/api/event_loop.h"
#include "platform/api/net.h"
#include "platform/api/nvram.h"
#include "platform/common/loop.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

namespace real {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// The platform looks its folder up once, so that all tests of a process share one.
class Device {
public:
  Device() {
    char name[] = "/tmp/local-router-XXXXXX";
    folder = mkdtemp(name);
    const unsigned pid = static_cast<unsigned>(getpid());
    address = "127." + std::to_string(100 + (pid >> 16) % 64) + "." +
              std::to_string((pid >> 8) % 256) + "." + std::to_string(1 + pid % 254);
    setenv("VIRTUAL_ROUTER_DIR", folder.c_str(), 1);
    setenv("VIRTUAL_ROUTER_ADDRESS", address.c_str(), 1);
  }
  ~Device() {
    if (getpid() == owner_) {
      fs::remove_all(folder);
    }
  }
  /// All but the settings store, which the process has open.
  void make_new() const {
    for (const char* name : {"bin", "dev", "tmp", "run/init", "flash/backup"}) {
      fs::remove_all(folder + "/" + name);
    }
    for (const char* name : {"bin", "dev", "flash", "run", "tmp"}) {
      fs::create_directory(folder + "/" + name);
    }
  }
  std::string folder;
  std::string address;

private:
  pid_t owner_ = getpid();
};

Device& device() {
  static Device only;
  return only;
}

} // namespace

Client::Client(int type, const std::string& address, std::uint16_t port)
    : fd_(socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
  sockaddr_in where{};
  where.sin_family = AF_INET;
  where.sin_port = htons(port);
  inet_pton(AF_INET, address.c_str(), &where.sin_addr);
  const int result = ::connect(fd_, reinterpret_cast<const sockaddr*>(&where), sizeof where);
  EXPECT_TRUE(result == 0 || errno == EINPROGRESS) << std::strerror(errno);
}

bool Client::send(const Bytes& bytes) const {
  return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(bytes.size());
}

Bytes Client::received() const {
  Bytes bytes(4096);
  const ssize_t count = recv(fd_, bytes.data(), bytes.size(), 0);
  bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return bytes;
}

bool Client::at_end() const {
  std::uint8_t byte = 0;
  const ssize_t count = recv(fd_, &byte, 1, MSG_PEEK);
  return count == 0 || (count < 0 && errno != EAGAIN);
}

void Client::shut_writing() const {
  shutdown(fd_, SHUT_WR);
}

void Client::reset() {
  const linger at_once{1, 0};
  setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  close();
}

void Client::close() {
  if (fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
  }
}

RouterFixture::RouterFixture() {
  device().make_new();
}

RouterFixture::~RouterFixture() {
  for (const int fd : servers_) {
    net_close(fd);
    unregister_fd_desc(fd);
  }
  for (const std::string& name : settings_) {
    nvram_set(name.c_str(), nullptr);
  }
  serve_for(1); // connections whose clients are gone
}

bool RouterFixture::serve_until(const std::function<bool()>& done, int limit_ms) {
  const auto end = Clock::now() + std::chrono::milliseconds(limit_ms);
  while (!done()) {
    if (Clock::now() >= end) {
      return false;
    }
    rcmd::loop_pass(2);
  }
  return true;
}

void RouterFixture::serve_for(int ms) {
  serve_until([] { return false; }, ms);
}

std::string RouterFixture::address() {
  return device().address;
}

std::string RouterFixture::folder() {
  return device().folder;
}

std::string RouterFixture::read_file(const std::string& device_path) {
  std::ifstream file(folder() + device_path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void RouterFixture::write_file(const std::string& device_path, const std::string& content) {
  std::ofstream(folder() + device_path, std::ios::binary | std::ios::trunc) << content;
}

void RouterFixture::write_tool(const std::string& name, const std::string& script) {
  write_file("/bin/" + name, "#!/bin/sh\n" + script);
  fs::permissions(folder() + "/bin/" + name, fs::perms::owner_all);
}

int RouterFixture::count(const std::string& text, const std::string& piece) {
  int found = 0;
  for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) {
    found++;
  }
  return found;
}

void RouterFixture::setting(const char* name, const char* value) {
  EXPECT_EQ(nvram_set(name, value), 0);
  settings_.emplace_back(name);
}

int RouterFixture::opened(int fd) {
  EXPECT_GE(fd, 0);
  servers_.push_back(fd);
  return fd;
}

} // namespace real
