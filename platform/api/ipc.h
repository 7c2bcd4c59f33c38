// System V shared memory and semaphores, which the syslog daemon's ring lives in. Arguments,
// results and errno are those of the call that each is named after.
#pragma once

#include <stddef.h>
#include <stdint.h>

struct sembuf;

extern "C" {

int ipc_shmget(int32_t key, size_t size, int flags);
void* ipc_shmat(int id, const void* address, int flags);
int ipc_shmdt(const void* address);
/// The attached segment's size in bytes; 0 when it is not to be had.
size_t ipc_shm_bytes(int id);
int ipc_semget(int32_t key, int count, int flags);
int ipc_semop(int id, struct sembuf* operations, size_t count);
}
