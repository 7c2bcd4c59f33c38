#include "tools/mtd/commands.h"

int main(int argc, char** argv) {
  return mtd_tools::nvram_mtd_read({argv + 1, argv + argc});
}
