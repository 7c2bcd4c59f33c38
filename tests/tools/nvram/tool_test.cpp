// The nvram program as a person or the daemon runs it, on a virtual router's folder.

#include "tests/platform/device_fixture.h"

#include <array>
#include <cstdio>
#include <sys/wait.h>

namespace {

struct ToolRun {
  int status;
  std::string output; ///< standard output and error
};

class NvramTool : public device_test::Device {
protected:
  static ToolRun nvram(const std::string& arguments) {
    const std::string command = PROGRAM_DIR "/nvram-virtual " + arguments + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    ToolRun run{-1, ""};
    std::array<char, 4096> piece{};
    while (const std::size_t count = fread(piece.data(), 1, piece.size(), pipe)) {
      run.output.append(piece.data(), count);
    }
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
  }
};

TEST_F(NvramTool, WhatIsSetIsReadBack) {
  EXPECT_EQ(nvram("set lan_ipaddr=192.168.1.1").status, 0);
  const ToolRun get = nvram("get lan_ipaddr");
  EXPECT_EQ(get.status, 0);
  EXPECT_EQ(get.output, "192.168.1.1\n");
}

TEST_F(NvramTool, AValueMayHoldEqualsSignsAndBlanksAndMayBeEmpty) {
  EXPECT_EQ(nvram("set 'a=x = y'").status, 0);
  EXPECT_EQ(nvram("get a").output, "x = y\n");
  EXPECT_EQ(nvram("set a=").status, 0);
  const ToolRun get = nvram("get a");
  EXPECT_EQ(get.status, 0);
  EXPECT_EQ(get.output, "\n");
}

TEST_F(NvramTool, AnAbsentKeyPrintsNothingAndFails) {
  const ToolRun get = nvram("get nothing");
  EXPECT_EQ(get.status, 1);
  EXPECT_EQ(get.output, "");
}

TEST_F(NvramTool, AnUnsetKeyIsAbsent) {
  nvram("set a=1");
  EXPECT_EQ(nvram("unset a").status, 0);
  EXPECT_EQ(nvram("get a").status, 1);
  EXPECT_EQ(nvram("unset a").status, 0) << "it is absent already";
}

TEST_F(NvramTool, ShowListsAllSettingsSorted) {
  nvram("set b=2");
  nvram("set a=1");
  nvram("set c=");
  const ToolRun show = nvram("show");
  EXPECT_EQ(show.status, 0);
  EXPECT_EQ(show.output, "a=1\nb=2\nc=\n");
}

TEST_F(NvramTool, CommittedSettingsOutliveARestart) {
  nvram("set a=1");
  EXPECT_EQ(nvram("commit").status, 0);
  nvram("set b=2");
  std::filesystem::remove(folder() / "run/nvram");
  EXPECT_EQ(nvram("show").output, "a=1\n");
}

TEST_F(NvramTool, ImportTakesADevicePath) {
  write("tmp/config.download", "a=1\nb=x=y\n");
  const ToolRun import = nvram("import /tmp/config.download");
  EXPECT_EQ(import.status, 0) << import.output;
  EXPECT_EQ(nvram("show").output, "a=1\nb=x=y\n");
}

TEST_F(NvramTool, ImportTakesAFileBesideTheDeviceWhenTheDeviceHasNone) {
  const std::string outside = folder().string() + "/outside";
  write("outside", "a=1\n");
  EXPECT_EQ(nvram("import " + outside).status, 0);
  EXPECT_EQ(nvram("get a").output, "1\n");
}

TEST_F(NvramTool, AMalformedLineImportsNothingAndIsNamed) {
  nvram("set a=before");
  write("tmp/config.download", "a=1\nb=2\n\nmalformed\nc=3\n");
  const ToolRun import = nvram("import /tmp/config.download");
  EXPECT_EQ(import.status, 1);
  EXPECT_EQ(import.output, "nvram: /tmp/config.download: line 4: no '='\n");
  EXPECT_EQ(nvram("show").output, "a=before\n");
}

TEST_F(NvramTool, AMissingFileOrAFolderIsNoImport) {
  EXPECT_EQ(nvram("import /tmp/nothing").status, 1);
  EXPECT_EQ(nvram("import /tmp").status, 1);
}

TEST_F(NvramTool, ALargeImportGoesInWhole) {
  std::string lines;
  for (int i = 10'000; i < 15'000; i++) {
    lines += "key" + std::to_string(i) + "=" + std::string(40, 'v') + "\n";
  }
  write("tmp/large", lines);
  EXPECT_EQ(nvram("import /tmp/large").status, 0);
  EXPECT_EQ(nvram("export").output, lines);
}

TEST_F(NvramTool, AnExportIsReadBackByImport) {
  nvram("set a=1");
  nvram("set 'b= x '");
  EXPECT_EQ(nvram("export /tmp/saved").status, 0);
  EXPECT_EQ(read("tmp/saved"), "a=1\nb= x \n");
  nvram("set a=2");
  nvram("unset b");
  EXPECT_EQ(nvram("import /tmp/saved").status, 0);
  EXPECT_EQ(nvram("export").output, "a=1\nb= x \n");
}

TEST_F(NvramTool, AValueWithALineFeedIsLeftOutOfAnExportAndNamed) {
  nvram("set a=1");
  nvram("set \"b=x\ny=z\"");
  const ToolRun shown = nvram("export /tmp/saved");
  EXPECT_EQ(shown.status, 1);
  EXPECT_EQ(shown.output, "nvram: b: left out, its value holds a line feed\n");
  EXPECT_EQ(read("tmp/saved"), "a=1\n");
}

TEST_F(NvramTool, WrongUseIsExplained) {
  for (const char* arguments : {"", "get", "set", "set a", "set =1", "frobnicate", "frobnicate x",
                                "show x", "get a b", "commit x", "import"}) {
    const ToolRun run = nvram(arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_EQ(run.output.substr(0, 21), "Usage: nvram COMMAND\n") << arguments;
  }
}

TEST_F(NvramTool, HelpNamesEveryCommand) {
  const ToolRun help = nvram("--help");
  EXPECT_EQ(help.status, 0);
  for (const char* word :
       {"get NAME", "set NAME=VALUE", "unset NAME", "show", "commit", "import FILE", "export"}) {
    EXPECT_NE(help.output.find(word), std::string::npos) << word;
  }
}

TEST_F(NvramTool, WithoutAPlaceForTheStoreACommandFails) {
  std::filesystem::remove_all(folder() / "run");
  write("run", "not a folder");
  EXPECT_EQ(nvram("get a").status, 1);
  EXPECT_EQ(nvram("set a=1").status, 1);
  EXPECT_EQ(nvram("show").status, 1);
  EXPECT_EQ(nvram("commit").status, 1);
}

} // namespace
