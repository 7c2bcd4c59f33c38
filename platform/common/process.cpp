#include "platform/api/process.h"
#include "core/owned.h"
#include "platform/api/files.h"
#include "platform/api/system.h"
#include "platform/common/hooks.h"
#include "platform/common/monotonic.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

extern "C" char** environ;

namespace {

constexpr int kNotStarted = -1;
constexpr int kKilledBase =
    128; ///< a tool that signal n ended has the status 128 + n, as in shells
constexpr int64_t kLookAgain_ms = 10;

/// Opens where the tool's output goes. What cannot be opened loses the output and nothing else.
int open_output(const char* output) {
  const char* path = *output == '>' ? output + 1 : output;
  const bool console = strcmp(path, "/dev/console") == 0;
  const int fd =
      console ? rcmd::open_console()
              : open(device_path(path), O_WRONLY | O_CREAT | O_TRUNC | O_NOCTTY | O_CLOEXEC, 0644);
  return fd >= 0 ? fd : open("/dev/null", O_WRONLY | O_CLOEXEC);
}

int status_of(int wait_status) {
  return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : kKilledBase + WTERMSIG(wait_status);
}

/// @return as waitpid, which is asked again after a signal
int wait_for(int pid, int* wait_status, int flags) {
  int result = -1;
  do {
    result = waitpid(pid, wait_status, flags);
  } while (result < 0 && errno == EINTR);
  return result;
}

int wait_until(int pid, int64_t end_ms) {
  int wait_status = 0;
  for (;;) {
    const int result = wait_for(pid, &wait_status, WNOHANG);
    if (result != 0) {
      return result < 0 ? kNotStarted : status_of(wait_status);
    }
    if (rcmd::monotonic_ms() >= end_ms) {
      rcmd::kill_child(pid);
      return wait_process(pid);
    }
    const timespec pause = {0, kLookAgain_ms * 1'000'000};
    nanosleep(&pause, nullptr);
  }
}

} // namespace

extern "C" {

int _eval(char* const argv[], const char* output, int timeout_s, int* pid) {
  char path[PATH_MAX];
  if (argv[0] == nullptr || !rcmd::find_tool(argv[0], path, sizeof path)) {
    return kNotStarted;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const rcmd::UniqueFd out(output == nullptr ? -1 : open_output(output));
  if (out) {
    posix_spawn_file_actions_adddup2(&actions, out.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.get(), STDERR_FILENO);
  }
  pid_t child = 0;
  const int error = posix_spawn(&child, path, &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    return kNotStarted;
  }
  if (pid != nullptr) {
    *pid = child;
    return 0;
  }
  return timeout_s > 0 ? wait_until(child, rcmd::monotonic_ms() + int64_t{timeout_s} * 1000)
                       : wait_process(child);
}

int wait_process(int pid) {
  int wait_status = 0;
  return pid <= 0 || wait_for(pid, &wait_status, 0) < 0 ? -1 : status_of(wait_status);
}

} // extern "C"
