#include "core/say.h"
#include "local/scantools.h"
#include "platform/api/nvram.h"
#include "platform/api/process.h"
#include "platform/api/system.h"

#include <csignal>
#include <cstdio>

namespace rcmd {

namespace {

bool has_run = false;

} // namespace

// DELIBERATE: once means once: after a commit that failed, no later call tries again.
void do_system_reboot() {
  if (has_run) {
    return;
  }
  has_run = true;

  char hang_up[8];
  std::snprintf(hang_up, sizeof hang_up, "-%d", SIGHUP);
  const char* const arguments[] = {"killall", hang_up, "pppd", nullptr};
  _eval(const_cast<char* const*>(arguments), ">/dev/console", 0, nullptr);

  const int result = nvram_commit();
  if (result != 0) {
    console("nvram_commit fail ,ret = %d \n", result);
    return;
  }
  console("nvram_commit ok\n");
  signal_init(SIGTERM);
  await_restart();
}

} // namespace rcmd
