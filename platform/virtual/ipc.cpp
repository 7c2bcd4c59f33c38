#include "platform/api/ipc.h"
#include "platform/virtual/device.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

extern "C" {

int ipc_shmget(int32_t key, size_t size, int flags) {
  return shmget(rcmd::device_ipc_key(rcmd::device_folder(), key), size, flags);
}

int ipc_semget(int32_t key, int count, int flags) {
  return semget(rcmd::device_ipc_key(rcmd::device_folder(), key), count, flags);
}

} // extern "C"
