// virtual-router: see docs/virtual-router.md.
#include "tools/virtual-router/options.h"
#include "tools/virtual-router/supervisor.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <unistd.h>

int main(int argc, char** argv) {
  using namespace virtual_router;
  Options options;
  const int status = read_options(argc, argv, options);
  if (status >= 0)
    return status;
  try {
    Printer printer(STDOUT_FILENO);
    const auto self = std::filesystem::read_symlink("/proc/self/exe");
    return Supervisor(options, self.parent_path().string(), printer).run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "virtual-router: %s\n", error.what());
    return 1;
  }
}
