// A virtual router for tests over real sockets: a device folder and a loopback address of this
// test process alone, the real event loop, and clients of its local servers.
//
// Nothing here waits for longer than it must: what a test waits for ends the waiting.
#pragma once

#include <cstdint>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <vector>

namespace real {

using Bytes = std::vector<std::uint8_t>;

/// A client's socket. It never blocks.
class Client {
public:
  Client(int type, const std::string& address, std::uint16_t port); ///< connects
  Client(Client&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() { close(); }

  bool send(const Bytes& bytes) const;
  [[nodiscard]] Bytes received() const; ///< what is there now; empty when nothing is
  [[nodiscard]] bool at_end() const;    ///< the peer has closed, or reset, the connection
  void shut_writing() const;
  void reset(); ///< closes as a vanished peer does: by a reset
  void close();

private:
  int fd_;
};

class RouterFixture : public ::testing::Test {
protected:
  RouterFixture();
  ~RouterFixture() override;

  /// One pass of the loop after the other until `done` holds. @return false after `limit_ms`
  static bool serve_until(const std::function<bool()>& done, int limit_ms = 5000);
  static void serve_for(int ms);

  static std::string address(); ///< 127.x.y.z
  static std::string folder();  ///< the device folder, with "bin", "dev", "flash", "run" and "tmp"
  static std::string read_file(const std::string& device_path);
  static void write_file(const std::string& device_path, const std::string& content);
  static void write_tool(const std::string& name, const std::string& script);
  /// The console since the test began.
  static std::string console() { return read_file("/dev/console"); }
  static int count(const std::string& text, const std::string& piece);

  [[nodiscard]] static Client connect(std::uint16_t port) { return {SOCK_STREAM, address(), port}; }
  [[nodiscard]] static Client datagrams_to(std::uint16_t port) {
    return {SOCK_DGRAM, address(), port};
  }
  /// Sets a value of the router's settings until the test ends.
  void setting(const char* name, const char* value);
  /// Has the fixture close and forget a server's socket after the test. @return `fd`
  int opened(int fd);

private:
  std::vector<int> servers_;
  std::vector<std::string> settings_;
};

} // namespace real
