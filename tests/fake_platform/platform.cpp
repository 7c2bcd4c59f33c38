// The platform services of the pretend router; every one of them writes down what it was asked.

#include "tests/fake_platform/fake.h"

#include "platform/api/console.h"
#include "platform/api/convert.h"
#include "platform/api/event_loop.h"
#include "platform/api/files.h"
#include "platform/api/ipc.h"
#include "platform/api/ipsec.h"
#include "platform/api/memory.h"
#include "platform/api/mtd.h"
#include "platform/api/nvram.h"
#include "platform/api/process.h"
#include "platform/api/system.h"
#include "platform/api/wireless.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

using fake::world;

namespace {

std::string name_of(const RcmTimer* timer) {
  const auto found = world().timer_names.find(timer);
  return found == world().timer_names.end() ? "timer" : found->second;
}

} // namespace

extern "C" {

// nvram: the text of the last get dies with the next call, as the contract allows.

const char* nvram_get(const char* name) {
  if (world().on_nvram_get) {
    world().on_nvram_get(name);
  }
  const auto found = world().nvram.find(name);
  if (found == world().nvram.end()) {
    world().handed_out.reset();
    return nullptr;
  }
  auto copy = std::make_unique<char[]>(found->second.size() + 1);
  std::memcpy(copy.get(), found->second.c_str(), found->second.size() + 1);
  world().handed_out = std::move(copy);
  return world().handed_out.get();
}

int nvram_set(const char* name, const char* value) {
  // The caller may hand back the text of the last get.
  const std::string key = name;
  const std::string text = value == nullptr ? "" : value;
  const bool unset = value == nullptr;
  world().handed_out.reset();
  world().note(unset ? "nvram_unset " + key : "nvram_set " + key + "=" + text);
  if (world().nvram_set_result != 0) {
    return world().nvram_set_result;
  }
  if (unset) {
    world().nvram.erase(key);
  } else {
    world().nvram[key] = text;
  }
  return 0;
}

int nvram_commit() {
  world().handed_out.reset();
  world().note("nvram_commit");
  if (world().commit_result == 0) {
    world().committed = world().nvram;
  }
  return world().commit_result;
}

// Event loop.

int register_fd_desc(int fd, FdHandler handler, void* arg) {
  world().note("register " + std::to_string(fd));
  if (world().watch_table_full) {
    return -1;
  }
  world().watches.push_back({fd, handler, arg, 0});
  return 0;
}

int unregister_fd_desc(int fd) {
  world().note("unregister " + std::to_string(fd));
  const auto removed =
      std::erase_if(world().watches, [&](const auto& watch) { return watch.fd == fd; });
  return removed > 0 ? 0 : -1;
}

int do_fd() {
  world().note("do_fd");
  return world().on_do_fd ? world().on_do_fd() : 0;
}

int add_event(RcmTimer* timer) {
  world().note("arm " + name_of(timer) + " " + std::to_string(timer->interval));
  std::int64_t delay_ms = timer->interval > 0 ? timer->interval * 1000 : 0;
  if (delay_ms == 0 && world().firing == timer) {
    delay_ms = 1000;
  }
  world().due[timer] = world().now_ms + delay_ms;
  return world().on_timer ? world().on_timer("add", *timer) : 0;
}

int del_event(RcmTimer* timer) {
  const bool was_armed = world().due.erase(timer) > 0;
  world().note((was_armed ? "disarm " : "cancel ") + name_of(timer));
  return world().on_timer ? world().on_timer("del", *timer) : 0;
}

// Processes.

int _eval(char* const argv[], const char* output, int timeout_s, int* pid) {
  fake::ToolRun run;
  for (char* const* argument = argv; *argument != nullptr; argument++) {
    run.arguments.emplace_back(*argument);
  }
  run.output = output == nullptr ? "" : output;
  run.timeout_s = timeout_s;
  run.waited = pid == nullptr;
  world().note("tool " + run.line() + (run.output.empty() ? "" : " " + run.output));
  world().tools_started++;
  if (world().recording) {
    world().tools.push_back(run);
  }
  const int result = world().on_tool ? world().on_tool(run) : 0;
  if (pid != nullptr && result == 0) {
    *pid = 5000 + world().tools_started;
    world().started[*pid] = run;
  }
  return result;
}

int wait_process(int pid) {
  const auto found = world().started.find(pid);
  if (found == world().started.end()) {
    world().note("wait nobody");
    return -1;
  }
  const fake::ToolRun run = found->second;
  world().note("wait " + run.arguments[0]);
  world().started.erase(found);
  return world().on_wait ? world().on_wait(run) : world().tool_status;
}

// Conversions: the common ones are the platforms' own; the resolver is the test's.

const char* atoaddr(const char* text, int flags, in_addr* address) {
  world().note("resolve " + std::string(text) +
               (flags == 0 ? "" : " flags " + std::to_string(flags)));
  if (world().on_resolve) {
    return world().on_resolve(text, address);
  }
  return inet_pton(AF_INET, text, address) == 1 ? nullptr : "not an address";
}

// Memory, wireless, IPsec.

int memory_info(MemoryInfo* info) {
  if (world().memory_result == 0) {
    *info = world().memory;
  }
  return world().memory_result;
}

int check_memory_avalid(std::uint32_t bytes) {
  world().note("check_memory " + std::to_string(bytes));
  return world().on_check_memory ? world().on_check_memory(bytes) : 1;
}

int wl_ioctl(const char* interface_name, int command, void* buffer, int length_bytes) {
  return world().on_wireless ? world().on_wireless(interface_name, command, buffer, length_bytes)
                             : -1;
}

int stop_ike() {
  world().note("stop_ike");
  return 0;
}

int unload_ipsec(int unit) {
  world().note("unload_ipsec " + std::to_string(unit));
  return 0;
}

// Files.

const char* device_path(const char* path) {
  static std::string last;
  last = world().path(path);
  return last.c_str();
}

int remove_device_file(const char* path) {
  world().note("remove " + std::string(path));
  return unlink(world().path(path).c_str());
}

// The device as a whole.

int restart_device(std::uint32_t code) {
  char text[32];
  std::snprintf(text, sizeof text, "restart %08x", code);
  world().note(text);
  if (!world().restart_refused) {
    throw fake::Restarted{};
  }
  return -1;
}

int signal_init(int signal_number) {
  world().note("signal " + std::to_string(signal_number));
  return 0;
}

void await_restart() {
  world().note("await_restart");
  throw fake::Restarted{};
}

void exit_process(int status) {
  throw fake::Exited{status};
}

std::int32_t system_uptime() {
  return static_cast<std::int32_t>(world().uptime_base + world().now_ms / 1000);
}

std::int64_t wall_clock() {
  return world().wall_base + world().now_ms / 1000;
}

void sleep_seconds(unsigned seconds) {
  world().note("sleep " + std::to_string(seconds));
  world().advance_to(world().now_ms + static_cast<std::int64_t>(seconds) * 1000);
}

// Console and standard error.

int console_write(const char* text, std::size_t length) {
  if (world().console_broken) {
    return -1;
  }
  world().note("console " + std::string(text, length));
  return 0;
}

void diagnostic_write(const char* text, std::size_t length) {
  world().note("diag " + std::string(text, length));
}

// System V objects.

int ipc_shmget(std::int32_t key, std::size_t size, int flags) {
  if (world().real_ipc_key != 0) {
    return shmget(world().real_ipc_key, size, flags);
  }
  char text[64];
  std::snprintf(text, sizeof text, "shmget %08x %zu %d", static_cast<unsigned>(key), size, flags);
  world().note(text);
  return world().ring_missing ? -1 : 7;
}

void* ipc_shmat(int id, const void* address, int flags) {
  if (world().real_ipc_key != 0) {
    return shmat(id, address, flags);
  }
  world().note("shmat " + std::to_string(id) + " " + std::to_string(flags));
  return world().ring;
}

int ipc_shmdt(const void* address) {
  if (world().real_ipc_key != 0) {
    return shmdt(address);
  }
  world().note("shmdt");
  return 0;
}

std::size_t ipc_shm_bytes(int id) {
  if (world().real_ipc_key != 0) {
    shmid_ds status{};
    return shmctl(id, IPC_STAT, &status) == 0 ? status.shm_segsz : 0;
  }
  return world().ring_bytes;
}

int ipc_semget(std::int32_t key, int count, int flags) {
  if (world().real_ipc_key != 0) {
    return semget(world().real_ipc_key, count, flags);
  }
  char text[64];
  std::snprintf(text, sizeof text, "semget %08x %d %d", static_cast<unsigned>(key), count, flags);
  world().note(text);
  return world().semaphores_missing ? -1 : 9;
}

int ipc_semop(int id, sembuf* operations, std::size_t count) {
  if (world().real_ipc_key != 0) {
    return semop(id, operations, count);
  }
  std::string text = "semop";
  for (std::size_t i = 0; i < count; i++) {
    text += " (" + std::to_string(operations[i].sem_num) + "," +
            std::to_string(operations[i].sem_op) + "," + std::to_string(operations[i].sem_flg) +
            ")";
  }
  world().note(text);
  if (world().semops++ == world().semop_fails_at) {
    return -1;
  }
  for (std::size_t i = 0; i < count; i++) {
    if (operations[i].sem_num == 0) {
      world().readers += operations[i].sem_op;
    }
  }
  return 0;
}

// Flash.

int mtd_get_info(int, MtdInfo* info) {
  const fake::PretendMtd& mtd = world().mtd;
  if (mtd.info_fails) {
    errno = ENOTTY;
    return -1;
  }
  *info = MtdInfo{};
  info->size = mtd.size;
  info->erase_size = mtd.erase_size;
  return 0;
}

int mtd_unlock(int, const MtdErase* erase) {
  world().note("mtd_unlock " + std::to_string(erase->start) + " " + std::to_string(erase->length));
  world().mtd.unlocks++;
  return -1; // many chips know no lock
}

int mtd_erase(int fd, const MtdErase* erase) {
  fake::PretendMtd& mtd = world().mtd;
  world().note("mtd_erase " + std::to_string(erase->start) + " " + std::to_string(erase->length));
  const int count = mtd.erases++;
  if (erase->start % mtd.erase_size != 0 || erase->length % mtd.erase_size != 0 ||
      erase->start >= mtd.size || erase->length > mtd.size - erase->start) {
    mtd.misaligned_erases++;
    errno = EINVAL;
    return -1;
  }
  if (count == mtd.erase_fails_at) {
    errno = EIO;
    return -1;
  }
  mtd.erased.resize(mtd.size);
  const std::string blank(erase->length, '\xFF');
  if (pwrite(fd, blank.data(), blank.size(), erase->start) != static_cast<ssize_t>(blank.size())) {
    return -1;
  }
  std::fill_n(mtd.erased.begin() + erase->start, erase->length, true);
  return 0;
}

ssize_t mtd_read(int fd, void* data, std::size_t length) {
  world().note("mtd_read " + std::to_string(length));
  world().mtd.reads++;
  return read(fd, data, length);
}

ssize_t mtd_write(int fd, const void* data, std::size_t length) {
  fake::PretendMtd& mtd = world().mtd;
  world().note("mtd_write " + std::to_string(length));
  const auto at = static_cast<std::size_t>(lseek(fd, 0, SEEK_CUR));
  const int count = mtd.writes++;
  if (count == mtd.write_fails_at) {
    length--;
  }
  mtd.erased.resize(mtd.size);
  for (std::size_t i = at; i < at + length; i++) {
    if (i >= mtd.size || !mtd.erased[i]) {
      mtd.writes_without_erase++;
      errno = EIO;
      return -1;
    }
  }
  std::fill_n(mtd.erased.begin() + static_cast<std::ptrdiff_t>(at), length, false);
  return write(fd, data, length);
}

} // extern "C"
