#include "platform/virtual/device.h"
#include "core/owned.h"
#include "platform/api/files.h"
#include "platform/api/ipsec.h"
#include "platform/api/memory.h"
#include "platform/api/process.h"
#include "platform/api/system.h"
#include "platform/common/hooks.h"
#include "platform/common/memory.h"
#include "platform/common/output.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" { // glibc 2.36's header leaves this out
#include <sys/pidfd.h>
}

namespace rcmd {

namespace {

constexpr long kMostSpeed = 3600;

[[noreturn]] void refuse(const char* reason) {
  fprintf(stderr, "VIRTUAL_ROUTER_DIR %s\n", reason);
  exit(1);
}

/// Whether a step of the path leads upward.
bool leads_out(const char* path) {
  for (const char* step = path; step != nullptr; step = strchr(step, '/')) {
    step += *step == '/' ? 1 : 0;
    if (strncmp(step, "..", 2) == 0 && (step[2] == '/' || step[2] == '\0')) {
      return true;
    }
  }
  return false;
}

/// Says a line to the supervisor. @return 0, or -1 when nobody listens
int tell_supervisor(const char* line) {
  const UniqueFd ear(
      open(device_path("/run/init"), O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  return ear && write_all(ear.get(), line, strlen(line)) ? 0 : -1;
}

} // namespace

const char* device_folder() {
  static char folder[PATH_MAX] = "";
  if (*folder != '\0') {
    return folder;
  }
  const char* named = getenv("VIRTUAL_ROUTER_DIR");
  struct stat facts = {};
  if (named == nullptr || *named == '\0') {
    refuse("is not set: a virtual router needs its device folder");
  }
  char found[PATH_MAX];
  if (realpath(named, found) == nullptr || stat(found, &facts) != 0 || !S_ISDIR(facts.st_mode)) {
    refuse("names no folder");
  }
  if (strcmp(found, "/") == 0) {
    refuse("must not be \"/\"");
  }
  memcpy(folder, found, sizeof folder);
  return folder;
}

int32_t device_ipc_key(const char* folder, int32_t key) {
  uint32_t hash = 0x811C9DC5U ^ static_cast<uint32_t>(key);
  for (const char* at = folder; *at != '\0'; at++) {
    hash = (hash ^ static_cast<uint8_t>(*at)) * 0x01000193U;
  }
  return static_cast<int32_t>(hash == 0 ? 1 : hash);
}

bool read_device_file(const char* path, char* text, size_t text_bytes) {
  const UniqueFd file(open(device_path(path), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  const ssize_t count = file ? read(file.get(), text, text_bytes - 1) : -1;
  text[count > 0 ? count : 0] = '\0';
  return count >= 0;
}

// What the shared sources ask ---------------------------------------------------------------------

bool find_tool(const char* name, char* path, size_t path_bytes) {
  if (*name == '\0' || strchr(name, '/') != nullptr || leads_out(name)) {
    return false;
  }
  const int length = snprintf(path, path_bytes, "%s/bin/%s", device_folder(), name);
  return static_cast<size_t>(length) < path_bytes && access(path, X_OK) == 0;
}

int open_console() {
  return open(device_path("/dev/console"),
              O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644);
}

/// A handle that names this child and nobody else, whatever becomes of its number.
void kill_child(int pid) {
  const UniqueFd child(pidfd_open(pid, 0));
  if (child) {
    pidfd_send_signal(child.get(), SIGKILL, nullptr, 0);
  }
}

int32_t clock_speed() {
  static int32_t speed = 0;
  if (speed == 0) {
    const char* asked = getenv("VIRTUAL_ROUTER_TIME_SCALE");
    const long number = asked == nullptr ? 1 : strtol(asked, nullptr, 10);
    speed = static_cast<int32_t>(std::clamp(number, 1L, kMostSpeed));
  }
  return speed;
}

int64_t booted_ms() {
  char text[32];
  return read_device_file("/run/booted_ms", text, sizeof text) ? strtoll(text, nullptr, 10) : -1;
}

const NvramPaths* nvram_paths() {
  static char texts[4][PATH_MAX];
  static NvramPaths paths = {};
  if (paths.working == nullptr) {
    const char* names[4] = {"run/nvram", "run/nvram.lock", "run/nvram.commits", "flash/nvram"};
    for (int i = 0; i < 4; i++) {
      snprintf(texts[i], sizeof texts[i], "%.4000s/%s", device_folder(), names[i]);
    }
    paths = {texts[0], texts[1], texts[2], texts[3]};
  }
  return &paths;
}

} // namespace rcmd

extern "C" {

const char* device_path(const char* path) {
  static char text[2 * PATH_MAX];
  if (*path != '/') {
    return path;
  }
  const char* inside = rcmd::leads_out(path) ? "/refused/path" : path;
  const int length = snprintf(text, sizeof text, "%s%s", rcmd::device_folder(), inside);
  if (static_cast<size_t>(length) >= sizeof text) {
    snprintf(text, sizeof text, "%s/refused/path", rcmd::device_folder());
  }
  return text;
}

int remove_device_file(const char* path) {
  return unlink(device_path(path));
}

int restart_device(uint32_t code) {
  char line[32];
  snprintf(line, sizeof line, "restart %08x\n", code);
  if (rcmd::tell_supervisor(line) != 0) {
    return -1;
  }
  await_restart(); // nothing runs on behind a restart
}

int signal_init(int signal_number) {
  char line[32];
  snprintf(line, sizeof line, "signal %d\n", signal_number);
  return rcmd::tell_supervisor(line);
}

int check_memory_avalid(uint32_t bytes) {
  char text[32];
  uint32_t kilobytes = 0;
  if (rcmd::read_device_file("/run/memory_limit_kb", text, sizeof text)) {
    kilobytes = static_cast<uint32_t>(strtoul(text, nullptr, 10));
  } else if (!rcmd::available_memory_kb(&kilobytes)) {
    return -1;
  }
  return rcmd::memory_suffices(bytes, kilobytes);
}

int stop_ike(void) {
  return 0; // a virtual router has no key exchange
}

int unload_ipsec(int) {
  return 0; // nor a kernel of its own
}

} // extern "C"
