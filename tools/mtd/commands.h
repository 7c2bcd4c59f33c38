// What the three flash tools do. Each gives an exit status: 0 done, 1 failed (the reason stands on
// standard error), 2 wrong use.
#pragma once

#include <string>
#include <vector>

namespace mtd_tools {

/// "mtd upgrade_trx FILE PARTITION": checks the firmware image and its checksum, and only then
/// writes it, its header included; what lies behind the image's length in the file is left out.
int mtd(const std::vector<std::string>& arguments);

/// "nvram_mtd_read FILE PARTITION": copies the whole partition to the file.
int nvram_mtd_read(const std::vector<std::string>& arguments);

/// "nvram_mtd_write FILE PARTITION": copies the file to the partition's start.
int nvram_mtd_write(const std::vector<std::string>& arguments);

} // namespace mtd_tools
