#include "tools/virtual-router/child.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace virtual_router {

namespace {

constexpr std::chrono::milliseconds kGlance(2);

struct Pipe {
  int ends[2] = {-1, -1};
  Pipe() {
    if (pipe2(ends, O_CLOEXEC) != 0)
      throw std::system_error(errno, std::generic_category(), "pipe");
  }
  ~Pipe() {
    close_end(0);
    close_end(1);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  void close_end(int which) {
    if (ends[which] >= 0)
      close(ends[which]);
    ends[which] = -1;
  }
  int take(int which) {
    const int fd = ends[which];
    ends[which] = -1;
    return fd;
  }
};

/// The child's side between fork and exec.
[[noreturn]] void become(char* const* argv, int output, int report, pid_t parent) {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent)
    _exit(126); // the supervisor is gone already
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
  dup2(input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  execv(argv[0], argv);
  const int error = errno;
  const ssize_t told = write(report, &error, sizeof error);
  _exit(told == sizeof error ? 127 : 126);
}

} // namespace

Child::~Child() {
  end(std::chrono::milliseconds(0));
  if (output_ >= 0)
    close(output_);
}

void Child::start(const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const auto& argument : arguments)
    argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  if (output_ >= 0)
    close(output_);
  output_ = -1;
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  Pipe output;
  Pipe report;
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid < 0)
    throw std::system_error(errno, std::generic_category(), "fork");
  if (pid == 0)
    become(argv.data(), output.ends[1], report.ends[1], parent);
  setpgid(pid, pid); // whoever of the two comes first
  report.close_end(1);
  int error = 0;
  if (read(report.ends[0], &error, sizeof error) == static_cast<ssize_t>(sizeof error)) {
    waitpid(pid, nullptr, 0);
    throw std::system_error(error, std::generic_category(), arguments[0]);
  }
  pid_ = pid;
  output_ = output.take(0);
  fcntl(output_, F_SETFL, O_NONBLOCK);
}

std::string Child::read_output() {
  char piece[4096];
  if (output_ < 0)
    return {};
  const ssize_t got = read(output_, piece, sizeof piece);
  if (got > 0)
    return {piece, static_cast<std::size_t>(got)};
  if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
    close(output_);
    output_ = -1;
  }
  return {};
}

bool Child::has_ended() const {
  siginfo_t info{};
  const int got = waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT);
  return got != 0 || info.si_pid == pid_;
}

int Child::reap() {
  kill(-pid_, SIGKILL); // what it started; the group's number is ours until the next line
  int status = 0;
  waitpid(pid_, &status, 0);
  while (waitpid(-pid_, nullptr, 0) > 0) {
    // what it started has become ours to collect
  }
  pid_ = -1;
  return status;
}

std::optional<int> Child::collect() {
  if (!running() || !has_ended())
    return std::nullopt;
  return reap();
}

void Child::end(std::chrono::milliseconds patience) {
  if (!running())
    return;
  kill(pid_, SIGTERM);
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!has_ended() && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(kGlance);
  reap();
}

Finished run_to_end(const std::vector<std::string>& arguments) {
  constexpr std::chrono::seconds kPatience(10);
  Child child(arguments[0]);
  child.start(arguments);
  Finished finished{128 + SIGKILL, {}};
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (child.output() >= 0 && std::chrono::steady_clock::now() < deadline) {
    pollfd ready{child.output(), POLLIN, 0};
    if (poll(&ready, 1, 100) > 0)
      finished.output += child.read_output();
  }
  while (std::chrono::steady_clock::now() < deadline) {
    if (const auto status = child.collect()) {
      finished.status = WIFEXITED(*status) ? WEXITSTATUS(*status) : 128 + WTERMSIG(*status);
      break;
    }
    std::this_thread::sleep_for(kGlance);
  }
  return finished;
}

std::string describe_end(int wait_status) {
  if (WIFSIGNALED(wait_status))
    return "was ended by signal " + std::to_string(WTERMSIG(wait_status));
  return "ended with status " + std::to_string(WEXITSTATUS(wait_status));
}

} // namespace virtual_router
