// The daemon as a program on the virtual router: what a wrong command line gives.

#include "tests/platform/device_fixture.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <vector>

namespace {

class DaemonProgram : public device_test::Device {
protected:
  /// Runs it to its end, standard output and error into tmp/said. @return the exit status
  static int run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), PROGRAM_DIR "/rcmd-virtual");
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const pid_t child = start_child();
    if (child == 0) {
      const int said =
          open((folder() / "tmp/said").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
      dup2(said, STDOUT_FILENO);
      dup2(said, STDERR_FILENO);
      execv(argv[0], argv.data());
      _exit(99);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
};

TEST_F(DaemonProgram, AMissingServerIsToldOnTheConsoleAlone) {
  EXPECT_EQ(run({"-d"}), 1);
  EXPECT_EQ(read("dev/console"), "miss rcm server ... \n");
  EXPECT_EQ(read("tmp/said"), "");
}

TEST_F(DaemonProgram, AMissingDomainIsToldOnTheConsoleAlone) {
  EXPECT_EQ(run({"-s", "127.0.0.1"}), 1);
  EXPECT_EQ(read("dev/console"), "miss rcm domain ... \n");
  EXPECT_EQ(read("tmp/said"), "");
}

TEST_F(DaemonProgram, AMalformedServerIsToldOnTheConsoleAlone) {
  EXPECT_EQ(run({"-s", "256.1.1.1", "-m", "x"}), 1);
  EXPECT_EQ(read("dev/console"), "can not resolve 256.1.1.1 \n");
  EXPECT_EQ(read("tmp/said"), "");
}

TEST_F(DaemonProgram, AWrongOptionAStrayArgumentAndAnAddressOfZeroEndItWithoutAWord) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"-x"},
                                                    {"-s"},
                                                    {"-s", "127.0.0.1", "stray"},
                                                    {"-s", "0.0.0.0", "-m", "x"}}) {
    EXPECT_EQ(run(arguments), 1);
    EXPECT_EQ(read("tmp/said"), "");
  }
  EXPECT_FALSE(std::filesystem::exists(folder() / "dev/console"));
}

} // namespace
