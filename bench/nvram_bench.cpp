// What a read of the settings costs at 2,000 keys, alone and while another process writes every key
// once a second, and what a change and a commit cost.

#include "platform/api/nvram.h"
#include "platform/common/nvram_store.h"

#include <benchmark/benchmark.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

const std::vector<std::string>& names() {
  static const std::vector<std::string> made = [] {
    std::vector<std::string> texts;
    for (int i = 0; i < 2000; i++) {
      texts.push_back("wan0_some_setting_" + std::to_string(i));
    }
    return texts;
  }();
  return made;
}

void read_all(benchmark::State& state) {
  std::size_t at = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(nvram_get(names()[at].c_str()));
    at = at + 1 == names().size() ? 0 : at + 1;
  }
}

void read(benchmark::State& state) {
  read_all(state);
}
BENCHMARK(read);

void read_while_others_write(benchmark::State& state) {
  const pid_t writer = fork();
  if (writer == 0) {
    rcmd::NvramStore store;
    for (int round = 0; round < 60; round++) {
      for (const std::string& name : names()) {
        store.set(name.c_str(), std::to_string(round).c_str());
      }
      sleep(1);
    }
    _exit(0);
  }
  read_all(state);
  kill(writer, SIGKILL);
  waitpid(writer, nullptr, 0);
}
BENCHMARK(read_while_others_write)->MinTime(3.0)->UseRealTime();

void change(benchmark::State& state) {
  std::size_t count = 0;
  for (auto _ : state) {
    nvram_set(names()[count % names().size()].c_str(), std::to_string(count).c_str());
    count++;
  }
}
BENCHMARK(change);

void commit(benchmark::State& state) {
  for (auto _ : state) {
    nvram_commit();
  }
}
BENCHMARK(commit);

} // namespace

int main(int argc, char** argv) {
  char folder[] = "/tmp/nvram-bench-XXXXXX";
  if (mkdtemp(folder) == nullptr) {
    return 1;
  }
  setenv("VIRTUAL_ROUTER_DIR", folder, 1);
  std::filesystem::create_directory(std::string(folder) + "/run");
  for (const std::string& name : names()) {
    nvram_set(name.c_str(), "an ordinary value");
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  std::filesystem::remove_all(folder);
  return 0;
}
