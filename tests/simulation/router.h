// The device: the real daemon from its first instruction on, life after life. A life ends with a
// restart that the daemon asked for, or with a power cut at any instant, which leaves the daemon's
// code as an exception; then everything that a process and a temporary file system lose is gone,
// and the router boots again.
#pragma once

#include "tests/simulation/flash.h"
#include "tests/simulation/report_check.h"

namespace sim {

struct PowerCut {};

/// What the daemon last asked the server for.
struct FileAsked {
  std::uint16_t type = 0; ///< FWREQ or CONFREQ; 0: nothing in this life
  std::string name;
  std::int64_t last_ms = 0; ///< when it, or one of its fragments, was last asked for
};

class Router {
public:
  std::function<void(const fake::Bytes& datagram)> on_send;             ///< to the server
  std::function<void(std::uint32_t seq, std::uint16_t type)> on_answer; ///< to a request

  Router(std::uint64_t seed, const Faults& faults, Chronicle& chronicle);

  /// From power-on to the end of that life. @throw what ends the world
  void live();
  /// The power goes after so many of the daemon's calls; 0: at once. @throw PowerCut
  void cut_power(int calls);
  /// A datagram reaches the device. `altered`: it is not what was sent.
  void receive(std::uint16_t port, const fake::Bytes& datagram, bool altered,
               const std::string& from, std::uint16_t from_port);

  /// The WAN's address, host order; 0 while the link is down.
  [[nodiscard]] std::uint32_t address() const { return wan_is_up_ ? scenery_.wan_address : 0; }
  [[nodiscard]] bool is_running() const { return is_running_; }
  [[nodiscard]] std::int64_t started_ms() const { return started_ms_; }
  [[nodiscard]] const FileAsked& file_asked() const { return file_asked_; }
  /// A command without fragments, or one that the network altered, holds the daemon for ever.
  [[nodiscard]] bool is_held() const { return is_held_; }
  /// A fragment could not be asked for or written: what has arrived is imported all the same.
  [[nodiscard]] bool download_failed() const;
  [[nodiscard]] Flash& flash() { return flash_; }
  [[nodiscard]] ReportCheck& reports() { return reports_; }
  /// What the operator's transfer must lead to, byte for byte.
  std::function<void(const std::string& imported)> on_import;

private:
  void wire();
  void boot();
  void run();
  int loop();
  void end_life();
  void call(const std::string& event);
  bool attempted(const fake::Datagram& datagram); ///< @return whether it goes to the server
  void answered(const fake::Datagram& datagram);
  int start_tool(const fake::ToolRun& run);
  int await_tool(const fake::ToolRun& run);
  void check_idle();
  void count_texts(const std::string& key);

  Random random_;
  const Faults& faults_;
  Chronicle& chronicle_;
  Ledger ledger_;
  Scenery scenery_;
  ReportCheck reports_;
  Flash flash_;
  std::string backup_;      ///< the partition
  std::string config_file_; ///< as the import tool found it
  bool is_running_ = false;
  bool wan_is_up_ = true;
  bool is_held_ = false;
  bool request_failed_ = false; ///< a file or fragment request could not be sent
  bool debug_;
  int calls_left_ = -1; ///< until the power goes; -1: it stays
  int calls_at_once_ = 0;
  std::int64_t last_call_ms_ = 0;
  std::int64_t started_ms_ = 0;
  FileAsked file_asked_;
  fake::Bytes last_request_; ///< the datagram that the daemon read last
  fake::Bytes lan_message_;
  std::size_t texts_ = 0; ///< which the plain passes of the reports did not release
  int lan_reads_ = 0;
  bool reports_began_ = false;
  std::set<std::string> plain_keys_; ///< the first key that each plain row reads
};

} // namespace sim
