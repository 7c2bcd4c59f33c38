#include "tests/soak/router.h"

#include "server/model.h"
#include "tests/soak/process.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace soak {

namespace {

/// The child's side between fork and exec. It does not outlive this program.
[[noreturn]] void become(const std::vector<std::string>& words, const std::string& log) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  const int output = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  std::vector<char*> arguments;
  for (const std::string& word : words) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  _exit(127);
}

} // namespace

Router::Router(std::uint32_t ip, int time_scale) : folder_("/tmp/soak-XXXXXX") {
  if (mkdtemp(folder_.data()) == nullptr) {
    throw std::runtime_error("no temporary folder");
  }
  const std::string address = server::ip_text(ip);
  const std::vector<std::string> words = {PROGRAM_DIR "/virtual-router",
                                          "--dir",
                                          folder_ + "/device",
                                          "--address",
                                          address,
                                          "--server",
                                          address,
                                          "--serial",
                                          "SOAK00000001",
                                          "--time-scale",
                                          std::to_string(time_scale)};
  const std::string log = folder_ + "/log";
  std::fflush(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    become(words, log);
  }
}

Router::~Router() {
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

pid_t Router::daemon() const {
  for (int glance = 0; glance < 1000; glance++) {
    const pid_t found = child_of(pid_, "rcmd-virtual");
    if (found > 0) {
      return found;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  throw std::runtime_error("the daemon does not start");
}

std::string Router::last_words() const {
  std::ifstream file(folder_ + "/log");
  std::deque<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line + "\n");
    if (lines.size() > 10) {
      lines.pop_front();
    }
  }
  std::string text;
  for (const std::string& line : lines) {
    text += line;
  }
  return text;
}

} // namespace soak
