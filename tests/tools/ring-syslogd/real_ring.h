// A ring of the kernel's own under a key that nobody else has, read by the log reader, and gone
// again after the test.
#pragma once

#include "core/say.h"
#include "tests/reporters/log_fixture.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

namespace fake {

class RealRing : public LogFixture {
protected:
  RealRing() {
    rcmd::debug = 0;
    world().real_ipc_key = key;
    remove_objects();
  }
  ~RealRing() override {
    detach();
    remove_objects();
  }

  [[nodiscard]] int semaphore(int number) const {
    return semctl(semget(key, 0, 0), number, GETVAL);
  }
  [[nodiscard]] bool objects_exist() const {
    return shmget(key, 0, 0) != -1 || semget(key, 0, 0) != -1;
  }

  const std::int32_t key = 0x52000000 | (getpid() & 0xFFFFFF);

private:
  void remove_objects() const {
    if (const int id = shmget(key, 0, 0); id != -1) {
      shmctl(id, IPC_RMID, nullptr);
    }
    if (const int id = semget(key, 0, 0); id != -1) {
      semctl(id, 0, IPC_RMID);
    }
  }
};

} // namespace fake
