#include "tools/virtual-router/options.h"

#include <CLI/CLI.hpp>

namespace virtual_router {

namespace {

/// A NAME=VALUE that the nvram tool can import.
std::string check_setting(const std::string& text) {
  const auto equals = text.find('=');
  if (equals == std::string::npos || equals == 0)
    return "\"" + text + "\" is not NAME=VALUE";
  if (text.find('\n') != std::string::npos)
    return "a setting is one line";
  return {};
}

void add_setting_option(CLI::App& app, Options& options, const std::string& flag,
                        const std::string& key, const std::string& help) {
  app.add_option_function<std::string>(
      flag,
      [&options, key](const std::string& value) {
        options.overrides.push_back(key + "=" + value); // NOLINT
      },
      help);
}

} // namespace

int read_options(int argc, char** argv, Options& options) {
  CLI::App app("A pretend router: the remote-management daemon on a device that is a folder.");
  app.add_option("--dir", options.dir,
                 "the device's folder; kept afterwards (default: a temporary one)");
  app.add_option("-s,--server", options.server, "the management server")->capture_default_str();
  app.add_option("-m,--domain", options.domain, "the management domain")->capture_default_str();
  app.add_flag("-d,--debug", options.debug, "have the daemon write its diagnostics");
  app.add_option("--address", options.address, "the device's own address")
      ->capture_default_str()
      ->check(CLI::ValidIPV4);
  app.add_option("--set", options.overrides, "NAME=VALUE: another factory setting (repeatable)")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check(check_setting);
  add_setting_option(app, options, "--serial", "SN", "the serial number");
  add_setting_option(app, options, "--firmware-version", "version_firmware",
                     "the version of the factory's firmware");
  add_setting_option(app, options, "--model", "product_model", "the product model");
  app.add_option("--daemon", options.daemon,
                 "the daemon to run: a program, or several words such as \"valgrind rcmd-virtual\"")
      ->delimiter(' ')
      ->allow_extra_args(false);
  app.add_option("--time-scale", options.time_scale, "the device's clock runs N times as fast")
      ->capture_default_str()
      ->check(CLI::Range(1, 3600));
  app.add_option("--log-lines-per-minute", options.log_lines_per_minute,
                 "how much the pretend programs log; 0 for nothing")
      ->capture_default_str()
      ->check(CLI::Range(0, 100000));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  return -1;
}

} // namespace virtual_router
