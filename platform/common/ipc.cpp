#include "platform/api/ipc.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

extern "C" {

void* ipc_shmat(int id, const void* address, int flags) {
  return shmat(id, address, flags);
}

int ipc_shmdt(const void* address) {
  return shmdt(address);
}

size_t ipc_shm_bytes(int id) {
  shmid_ds facts = {};
  return shmctl(id, IPC_STAT, &facts) == 0 ? facts.shm_segsz : 0;
}

int ipc_semop(int id, struct sembuf* operations, size_t count) {
  return semop(id, operations, count);
}

} // extern "C"
