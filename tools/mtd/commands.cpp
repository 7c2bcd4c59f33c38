#include "tools/mtd/commands.h"

#include "tools/mtd/partition.h"
#include "tools/trx/image.h"

#include <iostream>

namespace mtd_tools {

namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

int failed(const std::string& what, const std::string& reason) {
  std::cerr << what << ": " << reason << '\n';
  return kFailed;
}

int wrong_use(const std::string& usage) {
  std::cerr << "Usage: " << usage << '\n';
  return kWrongUse;
}

int write_partition(const std::string& name, const std::string& content) {
  Partition partition;
  if (!partition.open(name, true) || !partition.write(content)) {
    return failed(name, partition.fault);
  }
  return kDone;
}

} // namespace

int mtd(const std::vector<std::string>& arguments) {
  if (arguments.size() != 3 || arguments[0] != "upgrade_trx") {
    return wrong_use("mtd upgrade_trx FILE PARTITION");
  }
  const std::string& path = arguments[1];
  std::string image;
  if (!read_device_file(path, image)) {
    return failed(path, "cannot be read");
  }
  if (const auto fault = trx::find_fault(image)) {
    return failed(path, *fault);
  }
  image.resize(trx::read_image(image)->length);
  return write_partition(arguments[2], image);
}

int nvram_mtd_read(const std::vector<std::string>& arguments) {
  if (arguments.size() != 2) {
    return wrong_use("nvram_mtd_read FILE PARTITION");
  }
  Partition partition;
  std::string content;
  if (!partition.open(arguments[1], false) || !partition.read(content)) {
    return failed(arguments[1], partition.fault);
  }
  return write_device_file(arguments[0], content) ? kDone
                                                  : failed(arguments[0], "cannot be written");
}

int nvram_mtd_write(const std::vector<std::string>& arguments) {
  if (arguments.size() != 2) {
    return wrong_use("nvram_mtd_write FILE PARTITION");
  }
  std::string content;
  if (!read_device_file(arguments[0], content)) {
    return failed(arguments[0], "cannot be read");
  }
  return write_partition(arguments[1], content);
}

} // namespace mtd_tools
