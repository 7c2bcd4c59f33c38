// rcm-server: the reference management server.
#include "server/hub.h"
#include "server/version.h"

#include <CLI/CLI.hpp>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <charconv>
#include <cstdio>

namespace {

using server::Options;

constexpr char kBadLink[] = "A bad link, for tests";

/// "ADDRESS:PORT", an IPv6 address in brackets. @return an error text, empty when it was read
std::string read_endpoint(const std::string& text, Options& options) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) {
    return "must be ADDRESS:PORT";
  }
  std::string address = text.substr(0, colon);
  if (address.starts_with('[') && address.ends_with(']')) {
    address = address.substr(1, address.size() - 2);
  }
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data() + colon + 1, end, options.http_port);
  if (read.ec != std::errc{} || read.ptr != end || address.empty()) {
    return "must be ADDRESS:PORT";
  }
  options.http_address = address;
  return "";
}

void add_service_options(CLI::App& app, Options& options) {
  app.add_option("--bind", options.bind, "IPv4 address to serve devices on")->capture_default_str();
  app.add_option("--port", options.port, "UDP port to serve devices on; 0: any free one")
      ->capture_default_str();
  app.add_option("--http", "ADDRESS:PORT of the HTTP interface; port 0: any free one")
      ->default_str("127.0.0.1:8162")
      ->each([&options](const std::string& text) {
        const std::string error = read_endpoint(text, options);
        if (!error.empty()) {
          throw CLI::ValidationError("--http", error);
        }
      });
  app.add_option("--db", options.database, "SQLite database, or :memory:")->capture_default_str();
  app.add_option("--keep-days", options.keep_days,
                 "delete logs, traffic and positions after so many days; 0: never")
      ->check(CLI::Range(0, 36500))
      ->capture_default_str();
}

void add_device_options(CLI::App& app, Options& options) {
  auto& settings = options.settings;
  app.add_option("--keepalive-interval", settings.keepalive_interval,
                 "seconds between a device's keepalives")
      ->check(CLI::Range(1, 86400))
      ->capture_default_str();
  app.add_option("--keepalive-maxretries", settings.keepalive_maxretries,
                 "keepalives that may go unanswered")
      ->check(CLI::Range(0, 1000))
      ->capture_default_str();
  app.add_option("--time-zone", "the time that devices are told: utc or local")
      ->default_str("utc")
      ->check(CLI::IsMember({"utc", "local"}))
      ->each([&settings](const std::string& zone) { settings.local_time = zone == "local"; });
  app.add_option("--dead-after", settings.dead_after_s,
                 "seconds without progress after which a transfer or restart is given up")
      ->check(CLI::Range(1, 86400))
      ->capture_default_str();
  app.add_option("--max-devices", settings.most_devices, "registrations beyond are refused")
      ->capture_default_str();
}

void add_bad_link_options(CLI::App& app, Options& options) {
  const auto percent = CLI::Range(0.0, 100.0);
  auto& faults = options.faults;
  app.add_option("--drop", faults.drop, "lose so many percent of the datagrams, each way")
      ->check(percent)
      ->group(kBadLink);
  app.add_option("--duplicate", faults.duplicate, "double so many percent")
      ->check(percent)
      ->group(kBadLink);
  app.add_option("--reorder", faults.reorder, "hold so many percent back for 20 to 60 ms")
      ->check(percent)
      ->group(kBadLink);
  app.add_option("--delay", faults.delay_ms, "hold every answer back so many milliseconds")
      ->check(CLI::Range(0, 60000))
      ->group(kBadLink);
  app.add_option("--seed", faults.seed, "of the random numbers")
      ->capture_default_str()
      ->group(kBadLink);
}

int serve(const Options& options) {
  try {
    server::Hub hub(options);
    std::printf("rcm-server: devices on UDP %s:%u, HTTP on %s:%u\n", options.bind.c_str(),
                hub.udp_port(), options.http_address.c_str(), hub.http_port());
    std::fflush(stdout);
    hub.run();
  } catch (const std::exception& error) {
    spdlog::critical("{}", error.what());
    return 1;
  }
  return 0;
}

} // namespace

int main(int argc, char** argv) {
  Options options;
  std::string log_level = "info";
  CLI::App app{"The management server of a fleet of routers: enrols them, keeps what they report, "
               "changes their settings and hands out firmware and configuration files."};
  app.set_version_flag("--version", std::string("rcm-server ") + server::kVersion);
  add_service_options(app, options);
  add_device_options(app, options);
  app.add_option("--log-level", log_level, "of the log on standard error")
      ->check(CLI::IsMember({"debug", "info", "warn", "error", "off"}))
      ->capture_default_str();
  add_bad_link_options(app, options);
  CLI11_PARSE(app, argc, argv);
  spdlog::set_default_logger(spdlog::stderr_logger_st("rcm-server"));
  spdlog::set_level(spdlog::level::from_str(log_level));
  return serve(options);
}
