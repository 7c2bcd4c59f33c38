#include "tools/virtual-router/supervisor.h"

#include "tools/virtual-router/flash.h"
#include "tools/virtual-router/init_requests.h"
#include "tools/virtual-router/ring.h"
#include "tools/virtual-router/settings.h"
#include "tools/virtual-router/text_file.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/un.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace virtual_router {

namespace fs = std::filesystem;

namespace {

constexpr const char* kSpeaker = "init";

/// What the backup partition of a new device keeps, of its settings.
Settings kept_in_backup(const Settings& factory) {
  Settings kept;
  for (const char* name : {"jqa_reconnect_interval", "lan0_ifname", "wan0_ifname"})
    if (const auto found = factory.find(name); found != factory.end())
      kept.insert(*found);
  return kept;
}

int watch_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD})
    sigaddset(&set, number);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  signal(SIGPIPE, SIG_IGN);
  const int fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  if (fd < 0)
    throw std::system_error(errno, std::generic_category(), "signalfd");
  return fd;
}

/// Waits until the path is there, two seconds at most.
void wait_for_path(const std::string& path) {
  for (int glance = 0; glance < 1000 && !fs::exists(path); ++glance)
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

} // namespace

Supervisor::Supervisor(const Options& options, std::string programs, Printer& printer)
    : options_(options), programs_(std::move(programs)), printer_(printer), folder_(options.dir),
      factory_(factory_settings(options.overrides)), signals_(watch_signals()) {
  set_environment();
  for (const auto& tool : folder_.link_tools(programs_))
    printer_.line(kSpeaker, "the tool " + tool + " is missing: its program is not built");
  make_flash(folder_, kept_in_backup(factory_));
}

Supervisor::~Supervisor() {
  take_down();
  close(signals_);
}

void Supervisor::set_environment() const {
  setenv("VIRTUAL_ROUTER_DIR", folder_.root().c_str(), 1);
  setenv("VIRTUAL_ROUTER_ADDRESS", options_.address.c_str(), 1);
  setenv("VIRTUAL_ROUTER_TIME_SCALE", std::to_string(options_.time_scale).c_str(), 1);
  setenv("TZ", "UTC0", 1); // the device keeps its clock in UTC
}

void Supervisor::add_services(const BootTime& boot_time) {
  services_.clear();
  const std::string ring = programs_ + "/ring-syslogd";
  if (!fs::exists(ring))
    printer_.line(kSpeaker, "there is no syslog daemon: ring-syslogd is not built");
  else if (folder_.path("/dev/log").size() >= sizeof(sockaddr_un::sun_path))
    printer_.line(kSpeaker,
                  "there is no syslog daemon: the folder's name is too long for a socket");
  else
    add_service("syslogd", ring_command(ring, folder_, boot_time, options_.time_scale), "/dev/log");
  add_service("software",
              {programs_ + "/virtual-software", std::to_string(options_.log_lines_per_minute)},
              "/run/stations");
  std::vector<std::string> daemon = options_.daemon;
  if (daemon.empty())
    daemon = {programs_ + "/rcmd-virtual"};
  daemon.insert(daemon.end(), {"-m", options_.domain, "-s", options_.server});
  if (options_.debug)
    daemon.emplace_back("-d");
  add_service("rcmd", daemon, "/");
}

void Supervisor::add_service(const std::string& speaker, std::vector<std::string> command,
                             const std::string& shows) {
  services_.push_back({std::make_unique<Service>(speaker, std::move(command), printer_), shows});
}

void Supervisor::boot() {
  folder_.clear_memory();
  fs::remove(folder_.path("/dev/log"));
  console_.emplace(folder_.path("/dev/console"));
  requests_.emplace(folder_.path(kInitRequests));
  const BootTime boot_time = boot_now();
  replace_file(folder_.path("/run/booted_ms"), std::to_string(boot_time.monotonic_ms));
  const BootSettings settings = boot_settings(folder_, factory_);
  if (settings.seeded)
    printer_.line(kSpeaker, "a new device: the factory's settings are in place");
  if (settings.restored)
    printer_.line(kSpeaker, "the factory's settings are restored");
  if (!settings.version.empty())
    printer_.line(kSpeaker, "the firmware image carries version " + settings.version);
  add_services(boot_time);
  start_services();
}

// Each waits for the one before it to be at work, so that the daemon finds a device that is whole.
void Supervisor::start_services() {
  for (const auto& started : services_) {
    started.service->start();
    wait_for_path(folder_.path(started.shows));
  }
  printer_.line(kSpeaker, "the device is up");
}

void Supervisor::take_down() {
  for (auto service = services_.rbegin(); service != services_.rend(); ++service)
    service->service->stop();
  if (console_)
    printer_.text("console", console_->take());
  console_.reset();
  requests_.reset();
  remove_ring(folder_);
}

void Supervisor::restart(const std::string& reason) {
  printer_.line(kSpeaker, "the device restarts: " + reason);
  take_down();
  boot();
}

int Supervisor::run() {
  printer_.line(kSpeaker, "the device lives in " + folder_.root());
  boot();
  while (!end_status_) {
    wait_for_something();
    if (console_)
      printer_.text("console", console_->take());
    for (const auto& started : services_)
      started.service->show_output();
    serve_signals();
    if (!end_status_)
      serve_requests();
    if (!end_status_)
      watch_services();
    printer_.pump();
  }
  take_down();
  printer_.line(kSpeaker, "the device is off");
  return *end_status_;
}

void Supervisor::wait_for_something() {
  std::vector<pollfd> ready = {{signals_, POLLIN, 0},
                               {console_ ? console_->fd() : -1, POLLIN, 0},
                               {requests_ ? requests_->fd() : -1, POLLIN, 0}};
  for (const auto& started : services_)
    ready.push_back({started.service->output(), POLLIN, 0});
  poll(ready.data(), ready.size(), milliseconds_to_wait());
}

int Supervisor::milliseconds_to_wait() const {
  int wait_ms = printer_.waits() ? 50 : 1000;
  for (const auto& started : services_) {
    const auto due = started.service->due();
    if (!due)
      continue;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*due - Clock::now());
    wait_ms = std::min(wait_ms, std::max(static_cast<int>(left.count()), 0));
  }
  return wait_ms;
}

void Supervisor::serve_signals() {
  signalfd_siginfo info;
  while (read(signals_, &info, sizeof info) == static_cast<ssize_t>(sizeof info))
    if (info.ssi_signo != SIGCHLD)
      end_status_ = 0;
}

void Supervisor::serve_requests() {
  const std::string reason = requests_ ? restart_reason(requests_->take()) : "";
  if (!reason.empty())
    restart(reason);
}

void Supervisor::watch_services() {
  for (const auto& started : services_) {
    if (!started.service->watch()) {
      printer_.line(kSpeaker, "a program that the device needs keeps ending at once; giving up");
      end_status_ = 1;
      return;
    }
    started.service->start_if_due();
  }
}

} // namespace virtual_router
