// A real router's console, with a file of the test's own in the place of "/dev/console".

#include "platform/api/console.h"

#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/stat.h>

namespace {

std::string stand_in; ///< what is opened instead

} // namespace

extern "C" {
int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  return __real_open(std::strcmp(path, "/dev/console") == 0 ? stand_in.c_str() : path, flags, mode);
}
}

namespace {

class LinuxConsole : public testing::Test {
protected:
  LinuxConsole() {
    std::string name = "/tmp/linux-console-XXXXXX";
    folder_ = mkdtemp(name.data());
    stand_in = folder_ + "/console";
  }
  ~LinuxConsole() override { std::filesystem::remove_all(folder_); }

  static std::string content() {
    std::ostringstream text;
    text << std::ifstream(stand_in, std::ios::binary).rdbuf();
    return text.str();
  }

private:
  std::string folder_;
};

TEST_F(LinuxConsole, AMissingConsoleIsMade) {
  EXPECT_EQ(console_write("miss rcm server ... \n", 21), 0);
  EXPECT_EQ(content(), "miss rcm server ... \n");
}

TEST_F(LinuxConsole, OnAPlainFileEachTextReplacesTheLast) {
  EXPECT_EQ(console_write("can not resolve example \n", 25), 0);
  EXPECT_EQ(console_write("OK\n", 3), 0);
  EXPECT_EQ(content(), "OK\n");
}

TEST_F(LinuxConsole, WhereNoneCanBeMadeTheTextIsLost) {
  stand_in += "/no/such/folder";
  EXPECT_EQ(console_write("x", 1), -1);
}

} // namespace
