#include "tools/mtd/commands.h"

int main(int argc, char** argv) {
  return mtd_tools::nvram_mtd_write({argv + 1, argv + argc});
}
