#include "tools/virtual-router/ring.h"

#include "platform/virtual/device.h"

#include <algorithm>
#include <cstdio>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

namespace virtual_router {

std::int32_t ring_key(const std::string& root) {
  constexpr std::int32_t kDevicesOwnKey = 0x414E4547;
  return rcmd::device_ipc_key(root.c_str(), kDevicesOwnKey);
}

std::vector<std::string> ring_command(const std::string& program, const DeviceFolder& folder,
                                      const BootTime& boot, unsigned time_scale) {
  constexpr unsigned kMark_s = 1200; // of the device's
  char key[16];
  std::snprintf(key, sizeof key, "0x%08X", static_cast<unsigned>(ring_key(folder.root())));
  return {program,
          "--socket",
          folder.path("/dev/log"),
          "--key",
          key,
          "--boot",
          std::to_string(boot.machine_uptime_s),
          "--scale",
          std::to_string(time_scale),
          "--mark",
          std::to_string(std::max(kMark_s / time_scale, 1U))};
}

void remove_ring(const DeviceFolder& folder) {
  const key_t key = ring_key(folder.root());
  if (const int id = shmget(key, 0, 0); id >= 0)
    shmctl(id, IPC_RMID, nullptr);
  if (const int id = semget(key, 0, 0); id >= 0)
    semctl(id, 0, IPC_RMID);
}

} // namespace virtual_router
