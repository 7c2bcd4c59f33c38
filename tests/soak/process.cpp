#include "tests/soak/process.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace soak {

namespace {

namespace fs = std::filesystem;

struct Stat {
  std::string program;
  pid_t parent = -1;
  double processor_s = 0;
};

/// /proc/PID/stat: "pid (program) state parent ..."; the processor's times are fields 14 and 15.
Stat read_stat(const fs::path& folder) {
  std::ifstream file(folder / "stat");
  std::string text;
  std::getline(file, text); // nothing, when the process has just ended
  const auto open = text.find('(');
  const auto close = text.rfind(')');
  if (close == std::string::npos) {
    return {};
  }
  Stat stat{text.substr(open + 1, close - open - 1)};
  std::istringstream rest(text.substr(close + 1));
  std::string field;
  double ticks = 0;
  for (int number = 3; number <= 15 && rest >> field; number++) {
    if (number == 4) {
      stat.parent = std::atoi(field.c_str());
    } else if (number >= 14) {
      ticks += std::atof(field.c_str());
    }
  }
  stat.processor_s = ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
  return stat;
}

/// A mapping's first line is "from-to rights offset device inode path"; "Name: N kB" lines follow.
void read_mappings(const fs::path& folder, Figures& figures) {
  std::ifstream file(folder / "smaps");
  bool heap = false;
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string name;
    long amount = 0;
    words >> name >> amount;
    if (name.back() != ':') {
      figures.mappings++;
      heap = line.ends_with("[heap]");
    } else if (name == "Size:" && heap) {
      figures.heap += amount;
    } else if (name == "Rss:") {
      figures.resident += amount;
    } else if (name == "Pss:") {
      figures.proportional += amount;
    } else if (name == "Private_Dirty:") {
      figures.private_dirty += amount;
    } else if (name == "Anonymous:") {
      figures.anonymous += amount;
    }
  }
}

} // namespace

Figures figures_of(pid_t pid) {
  const fs::path folder = "/proc/" + std::to_string(pid);
  Figures figures;
  figures.processor_s = read_stat(folder).processor_s;
  read_mappings(folder, figures);
  if (figures.mappings == 0) {
    throw std::runtime_error("the daemon is gone");
  }
  const fs::directory_iterator descriptors(folder / "fd");
  figures.descriptors = static_cast<int>(std::distance(begin(descriptors), end(descriptors)));
  return figures;
}

pid_t child_of(pid_t parent, const std::string& program) {
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const int pid = std::atoi(entry.path().filename().c_str());
    if (pid <= 0) {
      continue;
    }
    const Stat stat = read_stat(entry.path());
    if (stat.parent == parent && stat.program == program) {
      return pid;
    }
  }
  return -1;
}

/// Each line of /proc/net/udp has the local address, in hexadecimal, as its second word, and the
/// dropped datagrams as its last.
long dropped_at(std::uint32_t ip, std::uint16_t port) {
  std::ifstream file("/proc/net/udp");
  long dropped = -1;
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string number;
    std::string local;
    words >> number >> local;
    const auto colon = local.find(':');
    if (colon == std::string::npos) {
      continue;
    }
    const auto address = ntohl(
        static_cast<std::uint32_t>(std::strtoul(local.substr(0, colon).c_str(), nullptr, 16)));
    const auto bound = std::strtoul(local.substr(colon + 1).c_str(), nullptr, 16);
    if (bound == port && (address == ip || address == 0)) {
      dropped = std::atol(line.substr(line.find_last_of(' ', line.find_last_not_of(' '))).c_str());
    }
  }
  return dropped;
}

} // namespace soak
