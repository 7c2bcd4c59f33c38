#include "tests/fake_platform/fake.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace fake {

namespace {

std::unique_ptr<World> the_world;

std::string joined(const World& world, const std::string& prefix) {
  std::string text;
  for (const std::string& event : world.events) {
    if (event.starts_with(prefix)) {
      text += event.substr(prefix.size());
    }
  }
  return text;
}

} // namespace

World& world() {
  if (!the_world) {
    the_world = std::make_unique<World>();
  }
  return *the_world;
}

void reset() {
  the_world.reset();
}

sockaddr_in address(const std::string& dotted, std::uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(port);
  inet_pton(AF_INET, dotted.c_str(), &result.sin_addr);
  return result;
}

std::string ToolRun::line() const {
  std::string text;
  for (const std::string& argument : arguments) {
    text += (text.empty() ? "" : " ") + argument;
  }
  return text;
}

World::World() = default;

World::~World() {
  if (!root_.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
}

std::vector<std::string> World::events_of(std::vector<std::string> prefixes) const {
  std::vector<std::string> found;
  std::copy_if(events.begin(), events.end(), std::back_inserter(found), [&](const auto& event) {
    return std::any_of(prefixes.begin(), prefixes.end(),
                       [&](const auto& prefix) { return event.starts_with(prefix); });
  });
  return found;
}

void World::note(const std::string& event) {
  if (on_call) {
    on_call(event);
  }
  if (!recording) {
    return;
  }
  constexpr std::size_t kMostEvents = 2'000'000;
  if (events.size() >= kMostEvents) {
    throw std::runtime_error("the code under test never came to an end");
  }
  events.push_back(event);
}

std::string World::diagnostics() const {
  return joined(*this, "diag ");
}
std::string World::console() const {
  return joined(*this, "console ");
}

// Time -----------------------------------------------------------------------------------------

void World::after(std::int64_t after_ms, std::function<void()> action) {
  schedule.emplace(now_ms + after_ms, std::move(action));
}

void World::advance_to(std::int64_t at_ms) {
  while (!schedule.empty() && schedule.begin()->first <= at_ms) {
    auto entry = schedule.extract(schedule.begin());
    now_ms = std::max(now_ms, entry.key());
    entry.mapped()();
  }
  now_ms = std::max(now_ms, at_ms);
}

std::int64_t World::next_event_ms(std::int64_t limit_ms) const {
  std::int64_t next = limit_ms;
  for (const auto& [timer, at] : due) {
    next = std::min(next, at);
  }
  if (!schedule.empty()) {
    next = std::min(next, schedule.begin()->first);
  }
  for (const Watch& watch : watches) {
    const auto socket = sockets.find(watch.fd);
    if (socket != sockets.end() && !socket->second.inbox.empty()) {
      next = std::min(next, std::max(now_ms, watch.rests_until_ms));
    }
  }
  return std::max(next, now_ms);
}

bool World::fire_due_timers() {
  std::vector<const RcmTimer*> ready;
  for (const auto& [timer, at] : due) {
    if (at <= now_ms) {
      ready.push_back(timer);
    }
  }
  std::sort(ready.begin(), ready.end(), [&](auto* a, auto* b) { return due[a] < due[b]; });
  for (const RcmTimer* timer : ready) {
    if (due.erase(timer) == 0) {
      continue; // another callback of this pass disarmed it
    }
    firing = timer;
    timer->callback(timer->arg);
    firing = nullptr;
  }
  return !ready.empty();
}

bool World::serve_descriptors() {
  bool served = false;
  const std::vector<Watch> present = watches;
  for (const Watch& watch : present) {
    const auto socket = sockets.find(watch.fd);
    if (!watched(watch.fd) || socket == sockets.end() || socket->second.inbox.empty() ||
        watch.rests_until_ms > now_ms) {
      continue;
    }
    const std::size_t before = socket->second.inbox.size();
    const int result = call_handler(watch.fd);
    served = true;
    const auto left = sockets.find(watch.fd);
    if (result < 0 && left != sockets.end() && left->second.inbox.size() >= before) {
      for (Watch& still : watches) {
        if (still.fd == watch.fd) {
          still.rests_until_ms = now_ms + 1000;
        }
      }
    }
  }
  return served;
}

void World::serve_ready() {
  advance_to(now_ms);
  for (int passes = 0; passes < 100'000; passes++) {
    const bool fired = fire_due_timers();
    if (!serve_descriptors() && !fired) {
      return;
    }
    advance_to(now_ms);
  }
  throw std::runtime_error("the event loop never became quiet");
}

void World::run_for(std::int64_t seconds) {
  const std::int64_t end = now_ms + seconds * 1000;
  serve_ready();
  while (now_ms < end) {
    advance_to(next_event_ms(end));
    serve_ready();
  }
}

// Timers ---------------------------------------------------------------------------------------

void World::name_timer(const RcmTimer* timer, const std::string& name) {
  timer_names[timer] = name;
}

bool World::armed(const RcmTimer* timer) const {
  return due.contains(timer);
}

std::int64_t World::due_in_ms(const RcmTimer* timer) const {
  const auto found = due.find(timer);
  return found == due.end() ? -1 : found->second - now_ms;
}

// Network --------------------------------------------------------------------------------------

void World::deliver(std::uint16_t port, const Bytes& bytes, std::int64_t after_ms,
                    const std::string& from, std::uint16_t from_port) {
  const sockaddr_in peer = address(from, from_port);
  auto arrive = [this, port, bytes, peer] {
    for (auto& [fd, socket] : sockets) {
      if (socket.port == port) {
        socket.inbox.push_back({fd, bytes, peer, now_ms});
        return;
      }
    }
  };
  if (after_ms <= 0) {
    arrive();
  } else {
    after(after_ms, arrive);
  }
}

int World::make_socket(std::uint16_t port) {
  const int fd = next_fd++;
  sockets[fd] = Socket{};
  sockets[fd].port = port;
  return fd;
}

bool World::watched(int fd) const {
  return std::any_of(watches.begin(), watches.end(), [&](auto& watch) { return watch.fd == fd; });
}

int World::call_handler(int fd) {
  for (const Watch& watch : watches) {
    if (watch.fd == fd) {
      FdDescriptor descriptor{fd, 0, watch.arg};
      return watch.handler(&descriptor);
    }
  }
  throw std::runtime_error("nobody watches descriptor " + std::to_string(fd));
}

// Files ----------------------------------------------------------------------------------------

std::string World::root() {
  if (root_.empty()) {
    char name[] = "/tmp/fake-router-XXXXXX";
    if (mkdtemp(name) == nullptr) {
      throw std::runtime_error("no temporary folder");
    }
    root_ = name;
    for (const char* folder : {"tmp", "proc/net", "dev/mtd"}) {
      std::filesystem::create_directories(root_ + "/" + folder);
    }
  }
  return root_;
}

std::string World::path(const std::string& device_path) {
  return device_path.starts_with("/") ? root() + device_path : device_path;
}

void World::write_file(const std::string& device_path, const std::string& content) {
  std::ofstream(path(device_path), std::ios::binary | std::ios::trunc) << content;
}

std::string World::read_file(const std::string& device_path) {
  std::ifstream file(path(device_path), std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

bool World::exists(const std::string& device_path) {
  return std::filesystem::exists(path(device_path));
}

} // namespace fake
