// A real router: everything lies where its name says, and a restart is a restart.

#include "platform/api/files.h"
#include "platform/api/ipsec.h"
#include "platform/api/memory.h"
#include "platform/api/process.h"
#include "platform/api/system.h"
#include "platform/common/hooks.h"
#include "platform/common/memory.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <sys/reboot.h>
#include <unistd.h>

namespace rcmd {

bool find_tool(const char* name, char* path, size_t path_bytes) {
  if (strchr(name, '/') != nullptr) {
    const int length = snprintf(path, path_bytes, "%s", name);
    return static_cast<size_t>(length) < path_bytes && access(path, X_OK) == 0;
  }
  for (const char* folder : {"/sbin", "/bin", "/usr/sbin", "/usr/bin"}) {
    const int length = snprintf(path, path_bytes, "%s/%s", folder, name);
    if (static_cast<size_t>(length) < path_bytes && access(path, X_OK) == 0) {
      return true;
    }
  }
  return false;
}

/// As fopen with mode "w" does: what is missing is made, and a plain file loses its old content.
int open_console() {
  return open("/dev/console", O_WRONLY | O_CREAT | O_TRUNC | O_NOCTTY | O_CLOEXEC, 0666);
}

void kill_child(int pid) {
  kill(pid, SIGKILL);
}

int32_t clock_speed() {
  return 1;
}

int64_t booted_ms() {
  return -1;
}

const NvramPaths* nvram_paths() {
  static const NvramPaths paths = {"/tmp/nvram/working", "/tmp/nvram/lock", "/tmp/nvram/commits",
                                   "/etc/nvram/image"};
  return &paths;
}

} // namespace rcmd

namespace {

char word_killall[] = "killall";
char word_pluto[] = "pluto";
char word_rmmod[] = "rmmod";
char word_ipsec[] = "ipsec";

} // namespace

extern "C" {

const char* device_path(const char* path) {
  return path;
}

int remove_device_file(const char* path) {
  return unlink(path);
}

int restart_device(uint32_t code) {
  return reboot(static_cast<int>(code)); // no sync(): a file system that hangs would hold it up
}

int signal_init(int signal_number) {
  return kill(1, signal_number);
}

int check_memory_avalid(uint32_t bytes) {
  uint32_t kilobytes = 0;
  return rcmd::available_memory_kb(&kilobytes) ? rcmd::memory_suffices(bytes, kilobytes) : -1;
}

int stop_ike(void) {
  char* const arguments[] = {word_killall, word_pluto, nullptr};
  return _eval(arguments, ">/dev/console", 0, nullptr);
}

int unload_ipsec(int) {
  char* const arguments[] = {word_rmmod, word_ipsec, nullptr};
  return _eval(arguments, ">/dev/console", 0, nullptr);
}

} // extern "C"
