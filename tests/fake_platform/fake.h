// A pretend router for tests: one world that owns time, the network, storage, child processes,
// memory, flash and the restart, and that writes down everything the daemon does to it, in order.
//
// Time stands still until the code under test waits or sleeps, or the test calls run_for(). Sockets
// are pretend: descriptors from 1000 on. Files are real and lie below a temporary folder.
// The end of a process, and the endless wait for a restart, leave the code under test by an
// exception (Exited, Restarted).
#pragma once

#include "platform/api/event_loop.h"
#include "platform/api/memory.h"
#include "platform/api/mtd.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <vector>

namespace fake {

using Bytes = std::vector<std::uint8_t>;

struct Exited {
  int status;
};
struct Restarted {};

struct Datagram {
  int fd;
  Bytes bytes;
  sockaddr_in peer; ///< where it goes, or where it comes from
  std::int64_t at_ms;
  int flags = 0; ///< of the send
};

struct ToolRun {
  std::vector<std::string> arguments;
  std::string output; ///< as given, with its ">"; empty for none
  int timeout_s;
  bool waited; ///< false: started with a pid result

  [[nodiscard]] std::string line() const; ///< the arguments joined by blanks
};

struct Socket {
  int domain = 0;
  int type = 0;
  int protocol = 0;
  std::uint16_t port = 0;
  bool listening = false;
  std::deque<Datagram> inbox;
};

struct Watch {
  int fd;
  FdHandler handler;
  void* arg;
  std::int64_t rests_until_ms; ///< after a handler's -1 that left its datagram unread
};

/// A flash partition that behaves like one: see mtd.h. Its bytes are the opened file's.
struct PretendMtd {
  std::uint32_t size = 8 << 20;
  std::uint32_t erase_size = 65536;
  bool info_fails = false;
  int erase_fails_at = -1; ///< this erase (counted from 0) fails
  int write_fails_at = -1; ///< this write comes up one byte short
  int unlocks = 0, erases = 0, writes = 0, reads = 0;
  int misaligned_erases = 0;    ///< each of them failed
  int writes_without_erase = 0; ///< each of them failed
  std::vector<bool> erased;     ///< per byte: erased and not written since
};

struct World {
  // Everything seen from outside, in order. The forms:
  //   "diag TEXT", "console TEXT"
  //   "nvram_set NAME=VALUE", "nvram_unset NAME", "nvram_commit"
  //   "tool ARGUMENTS[ >OUTPUT]", "wait TOOL" (a started tool collected), "wait nobody"
  //   "resolve TEXT[ flags N]" (flags other than 0), "socket FD", "bind ADDRESS:PORT", "listen N",
  //   "setsockopt LEVEL OPTION[ = N]" (a value other than the int 1), "close FD",
  //   "send N to ADDRESS:PORT", "receive flags N" (flags other than 0)
  //   "register FD", "unregister FD", "do_fd", "arm NAME N", "disarm NAME" (it was armed),
  //   "cancel NAME" (it was not), "sleep N"
  //   "remove PATH", "check_memory N", "stop_ike", "unload_ipsec N"
  //   "shmget KEY SIZE FLAGS", "shmat ID FLAGS", "shmdt", "semget KEY COUNT FLAGS",
  //   "semop (NUMBER,OPERATION,FLAGS) ..."
  //   "mtd_unlock START LENGTH", "mtd_erase START LENGTH", "mtd_read N", "mtd_write N"
  //   "restart 01234567", "signal N", "await_restart"
  std::vector<std::string> events;
  /// False: `events`, `sent` and `tools` stay empty, so that a long simulation does not grow.
  bool recording = true;
  /// Called with every event before it takes effect; what it throws leaves the code under test.
  std::function<void(const std::string& event)> on_call;
  /// The events that begin with one of the prefixes, joined order kept.
  [[nodiscard]] std::vector<std::string> events_of(std::vector<std::string> prefixes) const;
  /// All diag texts, and all console texts, joined.
  [[nodiscard]] std::string diagnostics() const;
  [[nodiscard]] std::string console() const;

  // Time. wall = wall_base + elapsed, uptime = uptime_base + elapsed.
  std::int64_t now_ms = 0;
  std::int64_t wall_base = 1'000'000'000;
  std::int32_t uptime_base = 100;
  /// Runs `action` when time reaches now + after_ms (while waiting, sleeping or running).
  void after(std::int64_t after_ms, std::function<void()> action);
  void advance_to(std::int64_t at_ms); ///< time passes; scheduled actions run, nothing else
  /// Runs the event loop for that long: timers fire, datagrams reach their handlers.
  void run_for(std::int64_t seconds);
  void serve_ready(); ///< serves what is readable now, and timers that are due, until all is quiet

  // Timers.
  void name_timer(const RcmTimer* timer, const std::string& name);
  /// Called by add_event ("add") and del_event ("del") with the record as it is; gives their
  /// result.
  std::function<int(const std::string& call, const RcmTimer& timer)> on_timer;
  [[nodiscard]] bool armed(const RcmTimer* timer) const;
  [[nodiscard]] std::int64_t due_in_ms(const RcmTimer* timer) const; ///< -1: not armed

  // Network.
  std::map<int, Socket> sockets;
  std::vector<Datagram> sent;
  std::function<void(const Datagram&)> on_send;           ///< a peer: may call deliver()
  std::function<void(const Datagram&)> on_receive;        ///< a datagram is being read
  std::function<bool(const Datagram&)> send_fails;        ///< true: the send gives -1
  std::function<long(const Datagram&)> send_result;       ///< another result than the whole length
  std::function<int(int fd, int seconds)> waitfor_result; ///< not INT_MIN: waitfor gives that
  int socket_fails_at = -1;                               ///< this net_socket (from 0) fails
  int sockets_made = 0;
  std::function<bool(const std::string& call)> net_call_fails; ///< "setsockopt", "bind", ...
  std::function<int(int fd, unsigned long request, void* argument)> on_ioctl;
  /// Puts a datagram into the inbox of the socket bound to `port`, after a while.
  void deliver(std::uint16_t port, const Bytes& bytes, std::int64_t after_ms = 0,
               const std::string& from = "127.0.0.1", std::uint16_t from_port = 1162);
  /// A socket that exists already, as if accepted or opened.
  int make_socket(std::uint16_t port = 0);
  std::deque<int> connections;   ///< what net_accept hands out; empty: it fails
  bool watch_table_full = false; ///< register_fd_desc fails
  std::vector<Watch> watches;
  [[nodiscard]] bool watched(int fd) const;
  /// Calls the handler of a watched descriptor once. @return its result
  int call_handler(int fd);

  // Storage.
  std::map<std::string, std::string> nvram;
  std::map<std::string, std::string> committed;
  int nvram_set_result = 0;
  int commit_result = 0;
  std::function<void(const std::string& name)> on_nvram_get;

  // Tools.
  std::vector<ToolRun> tools;
  std::function<int(const ToolRun&)> on_tool; ///< result of _eval; default 0
  /// A started tool is waited for: may let time pass. Default: tool_status.
  std::function<int(const ToolRun&)> on_wait;
  int tool_status = 0; ///< what wait_process gives for a started tool

  // Files: below root(); "tmp", "proc" and "dev" exist.
  [[nodiscard]] std::string root();
  [[nodiscard]] std::string path(const std::string& device_path);
  void write_file(const std::string& device_path, const std::string& content);
  [[nodiscard]] std::string read_file(const std::string& device_path);
  [[nodiscard]] bool exists(const std::string& device_path);

  // Console, memory, wireless, flash, restart.
  bool console_broken = false;
  MemoryInfo memory{16384, 8192, 4096, 0, 0, 4096};
  int memory_result = 0;
  std::function<int(std::uint32_t bytes)> on_check_memory; ///< default 1
  std::function<int(const std::string& name, int command, void* buffer, int length)> on_wireless;
  PretendMtd mtd;
  bool restart_refused = false;
  std::function<const char*(const std::string& text, in_addr* address)> on_resolve;
  std::function<int()> on_do_fd; ///< do_fd gives its result; default: returns 0 at once

  // The syslog ring.
  void* ring = nullptr;            ///< what shmat gives
  std::size_t ring_bytes = 0;      ///< the segment's size
  bool ring_missing = false;       ///< shmget fails
  bool semaphores_missing = false; ///< semget fails
  int semop_fails_at = -1;
  int semops = 0;
  int readers = 0;               ///< semaphore 0
  std::int32_t real_ipc_key = 0; ///< not 0: the kernel's own objects of this key, nothing noted

  World();
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // Used by the platform functions.
  void note(const std::string& event); ///< a chain that never ends is ended by an exception
  bool fire_due_timers();
  bool serve_descriptors();
  [[nodiscard]] std::int64_t next_event_ms(std::int64_t limit_ms) const;
  std::map<const RcmTimer*, std::int64_t> due;
  std::map<const RcmTimer*, std::string> timer_names;
  const RcmTimer* firing = nullptr;
  std::multimap<std::int64_t, std::function<void()>> schedule;
  int next_fd = 1000;
  std::map<int, ToolRun> started;
  int tools_started = 0;
  std::unique_ptr<char[]> handed_out; ///< the last text of nvram_get
  std::string root_;
};

/// The world of the running test; the first use after reset() makes a fresh one.
World& world();
void reset();

/// "10.0.0.1" and a port as a socket address.
sockaddr_in address(const std::string& dotted, std::uint16_t port);

} // namespace fake
