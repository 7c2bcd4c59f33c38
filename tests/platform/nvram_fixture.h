// The settings store on a device of its own, looked at from one process and from several.
#pragma once

#include "platform/common/nvram_store.h"
#include "tests/platform/device_fixture.h"

#include <fstream>
#include <map>
#include <string>
#include <sys/wait.h>

namespace device_test {

using rcmd::NvramStore;

class Store : public device_test::Device {
protected:
  static std::string get(NvramStore& store, const std::string& name) {
    const char* value = store.get(name.c_str());
    return value == nullptr ? "(absent)" : value;
  }

  static std::map<std::string, std::string> all(NvramStore& store) {
    std::map<std::string, std::string> found;
    EXPECT_EQ(store.each(
                  [](void* arg, const char* record) {
                    const std::string text = record;
                    const auto separator = text.find('=');
                    (*static_cast<decltype(found)*>(arg))[text.substr(0, separator)] =
                        text.substr(separator + 1);
                  },
                  &found),
              0);
    return found;
  }

  /// How many working copies this process has mapped, replaced ones included.
  static int mappings() {
    const std::string working = folder() / "run/nvram";
    std::ifstream maps("/proc/self/maps");
    int count = 0;
    for (std::string line; std::getline(maps, line);) {
      count += line.find(working) != std::string::npos ? 1 : 0;
    }
    return count;
  }

  /// What a restart of the device leaves: the working copy is gone.
  static void restart() { std::filesystem::remove(folder() / "run/nvram"); }

  /// Runs in a child process; @return its exit status
  template <typename Action> static int in_child(Action action) {
    const pid_t child = start_child();
    if (child == 0) {
      _exit(action());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
};

} // namespace device_test
