// A device folder of the test program's own, in memory where the machine has such a place. It is
// emptied before each test and removed at the end.
#pragma once

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>

namespace device_test {

class Device : public testing::Test {
protected:
  Device() {
    for (const auto& entry : std::filesystem::directory_iterator(folder())) {
      std::filesystem::remove_all(entry);
    }
    for (const char* name : {"run", "bin", "dev/mtd", "tmp"}) {
      std::filesystem::create_directories(folder() / name);
    }
  }

  static const std::filesystem::path& folder() {
    static const Folder made;
    return made.path;
  }

  static void write(const std::string& name, const std::string& content) {
    std::ofstream(folder() / name, std::ios::binary | std::ios::trunc) << content;
  }

  static std::string read(const std::string& name) {
    std::ifstream file(folder() / name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }

  /// Puts a shell script among the device's tools.
  static void make_tool(const std::string& name, const std::string& script) {
    write("bin/" + name, "#!/bin/sh\n" + script + "\n");
    std::filesystem::permissions(folder() / "bin" / name, std::filesystem::perms::owner_all);
  }

  /// fork(), with a child that does not outlive the test program.
  static pid_t start_child() {
    const pid_t child = fork();
    if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
    }
    return child;
  }

private:
  struct Folder {
    std::filesystem::path path;
    pid_t owner = getpid();

    Folder() {
      std::string name = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
      name += "/device-test-XXXXXX";
      if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
      }
      path = std::filesystem::canonical(name);
      setenv("VIRTUAL_ROUTER_DIR", path.c_str(), 1);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
      if (getpid() == owner) {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
      }
    }
  };
};

} // namespace device_test
