#include "tools/mtd/commands.h"

int main(int argc, char** argv) {
  return mtd_tools::mtd({argv + 1, argv + argc});
}
