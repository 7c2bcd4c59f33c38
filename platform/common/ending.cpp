#include "platform/api/system.h"

#include <cstdlib>
#include <unistd.h>

extern "C" {

void await_restart(void) {
  for (;;) {
    pause();
  }
}

void exit_process(int status) {
  exit(status);
}

} // extern "C"
