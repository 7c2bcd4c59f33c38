#include "transfer/flash.h"

#include "core/owned.h"
#include "core/result.h"
#include "core/say.h"
#include "platform/api/console.h"
#include "platform/api/files.h"
#include "platform/api/memory.h"
#include "platform/api/mtd.h"
#include "platform/api/system.h"
#include "rcm/packet.h"
#include "transfer/download.h"
#include "transfer/file_request.h"
#include "transfer/firmware.h"
#include "transfer/recovery.h"
#include "transfer/tool.h"
#include "transfer/trx.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace rcmd {

namespace {

constexpr std::uint32_t kFirstCheckBytes = 0xA0400; // a batch and one fragment
constexpr std::uint32_t kSecondCheckBytes = 0x1A0000;
constexpr std::size_t kMtdLineBytes = 4096;
constexpr const char* kRemoveFile[] = {"rm", "-rf", kFirmwareFile, nullptr};

constexpr FileTransfer kFlashTransfer = {kFwReq, do_rcm_download_and_upgrade_firmware,
                                         "prepare file request .... \n",
                                         "rcm download and upgrade firmware .... \n",
                                         "do_rcm_download_and_upgrade_firmware fail ... \n"};

struct FlashUpgrade {
  FlashUpgrade() = default;
  FlashUpgrade(const FlashUpgrade&) = delete;
  FlashUpgrade& operator=(const FlashUpgrade&) = delete;
  ~FlashUpgrade() { std::free(block); }

  UniqueFd mtd;
  char* block = nullptr; // one erase block
  int file = -1;         // the temporary file's descriptor, open or closed again
  TrxHeader header{};
  std::uint32_t trx_length = 0;
  std::uint32_t written = 0; // bytes of the partition, and the next erase's start
  MtdErase erase{0, 0};      // its length is the erase size
};

// As perror does, whatever `debug` says.
void say_error() {
  char line[160];
  const int length = std::snprintf(line, sizeof line, "do_rcm_download_and_upgrade_firmware: %s\n",
                                   std::strerror(errno));
  if (length > 0) {
    diagnostic_write(line, std::min(static_cast<std::size_t>(length), sizeof line - 1));
  }
}

// One line, without its end; of a longer line a piece. @return false at the file's end
bool read_line(int fd, char (&line)[kMtdLineBytes]) {
  std::size_t used = 0;
  char next = '\0';
  bool any = false;
  while (used < sizeof line - 1 && read(fd, &next, 1) == 1) {
    any = true;
    if (next == '\n') {
      break;
    }
    line[used++] = next;
  }
  line[used] = '\0';
  return any;
}

// @return the number of the first partition whose line contains the name, or -1
int find_partition(int fd, const char* name) {
  char line[kMtdLineBytes];
  while (read_line(fd, line)) {
    int number = 0;
    // DELIBERATE: a line that merely contains the name will do; the first one wins.
    if (std::sscanf(line, "mtd%d:", &number) == 1 && std::strstr(line, name) != nullptr) {
      return number;
    }
  }
  return -1;
}

// DELIBERATE: every erase has the full erase size from wherever writing stands; with blocks that do
// not divide a batch, a later erase starts inside a block and fails.
bool open_flash(FlashUpgrade& flash) {
  flash.mtd.reset(mtd_open("linux", O_RDWR));
  MtdInfo info{};
  if (!flash.mtd || mtd_get_info(flash.mtd.get(), &info) != 0 ||
      info.erase_size < kTrxHeaderBytes) {
    say_error();
    return false;
  }
  if (check_memory_avalid(info.erase_size) == 0) {
    return false;
  }
  flash.erase.length = info.erase_size;
  diag("erase length=%d.\n", static_cast<int>(flash.erase.length));
  flash.block = static_cast<char*>(std::malloc(info.erase_size));
  return flash.block != nullptr;
}

bool begin_flash(FlashUpgrade& flash) {
  if (!read_trx_header(flash.file, flash.header) || !trx_header_is_good(flash.header)) {
    return false;
  }
  diag("TRX header is ok.\n");
  if (!open_flash(flash)) {
    return false;
  }
  flash.trx_length = trx_read_length(flash.header);
  diag("trx length=%d.\n", static_cast<int>(flash.trx_length));
  return true;
}

// Fills, erases and writes one block.
// DELIBERATE: where the header is left out, the first batch holds that many bytes less than its end
// asks for, and an image longer than it comes up short.
bool write_block(FlashUpgrade& flash, std::uint32_t end) {
  const std::uint32_t chunk = std::min(flash.erase.length, end - flash.erase.start);
  std::uint32_t skip = 0;
  if (!trx_leaves_header_out(flash.header) && flash.erase.start == 0) {
    std::memcpy(flash.block, &flash.header, sizeof flash.header);
    skip = sizeof flash.header;
  }
  const std::uint32_t want = chunk - skip;
  if (read(flash.file, flash.block + skip, want) != static_cast<ssize_t>(want)) {
    return false;
  }
  ignore(mtd_unlock(flash.mtd.get(), &flash.erase)); // many chips know no lock
  if (mtd_erase(flash.mtd.get(), &flash.erase) != 0) {
    return false;
  }
  console("-");
  if (mtd_write(flash.mtd.get(), flash.block, chunk) != static_cast<ssize_t>(chunk)) {
    return false;
  }
  console("+");
  flash.erase.start += chunk;
  return true;
}

bool write_batch(FlashUpgrade& flash, std::uint32_t fragments) {
  const std::uint32_t end = std::min(flash.trx_length, flash.written + fragments * kFragmentBytes);
  diag("erase start=%d, erase end=%d.\n", static_cast<int>(flash.written), static_cast<int>(end));
  flash.erase.start = flash.written;
  while (flash.erase.start < end) {
    if (!write_block(flash, end)) {
      return false;
    }
  }
  flash.written = flash.erase.start;
  return true;
}

// Downloads fragments start to end - 1 into the temporary file and writes them. A whole batch, and
// a download that failed, leave the file closed.
int upgrade_batch(RcmContext& context, FlashUpgrade& flash, std::uint32_t start,
                  std::uint32_t end) {
  const Download download = {do_request_fw_fragment, start, end, nullptr, kFirmwarePeerDead};
  const int result = download_fragments(context, download, flash.file);
  if (result != kSuccess) {
    close(flash.file);
    return result;
  }
  if (lseek(flash.file, 0, SEEK_SET) != 0 || (start == 0 && !begin_flash(flash)) ||
      !write_batch(flash, end - start)) {
    return kFailure;
  }
  close(flash.file);
  return kSuccess;
}

void clean_up(FlashUpgrade& flash) {
  if (flash.block != nullptr) {
    ignore(mtd_read(flash.mtd.get(), flash.block, 2)); // a dummy read
    std::free(flash.block); // before the tool is run: the device is short of memory
    flash.block = nullptr;
  }
  flash.mtd.reset();
  // DELIBERATE: a file that its batch has closed is closed a second time. Nothing was opened
  // between, so that the number cannot be another's by now.
  if (flash.file >= 0) {
    close(flash.file);
  }
  ignore(run_to_console(kRemoveFile)); // the file need not be there
}

} // namespace

int mtd_open(const char* name, int flags) {
  int number = -1;
  {
    const UniqueFd partitions(open(device_path("/proc/mtd"), O_RDONLY | O_CLOEXEC));
    if (partitions) {
      number = find_partition(partitions.get(), name);
    }
  }
  if (number < 0) {
    return open(device_path(name), flags | O_CLOEXEC);
  }
  char path[32];
  std::snprintf(path, sizeof path, "/dev/mtd/%d", number);
  return open(device_path(path), flags | O_CLOEXEC);
}

int do_rcm_download_and_upgrade_firmware(RcmContext* context, std::uint32_t total_length,
                                         std::uint16_t fragment_count) {
  diag("Begin to download firmware form RCM server totlen = %d , fragment = %d ... \n",
       static_cast<int>(total_length), fragment_count);
  FlashUpgrade flash;
  int result = kSuccess;
  for (std::uint32_t start = 0; start < fragment_count && result == kSuccess;
       start += FLASH_BATCH_FRAGMENTS) {
    const std::uint32_t end =
        std::min<std::uint32_t>(start + FLASH_BATCH_FRAGMENTS, fragment_count);
    diag("start fragment=%d, end fragment=%d, fragment number=%d.\n", static_cast<int>(start),
         static_cast<int>(end), static_cast<int>(end - start));
    flash.file = create_download_file(kFirmwareFile);
    if (flash.file < 0) {
      return kFailure; // without the clean-up; what an earlier batch took is given back unseen
    }
    result = upgrade_batch(*context, flash, start, end);
  }
  if (result == kSuccess) {
    diag("OK!\n");
  }
  clean_up(flash);
  return result;
}

void rcm_upgradecmd_flash_func(RcmContext* context) {
  FileCommand command;
  if (!read_file_command(*context, command)) {
    return;
  }
  diag("NAME=%s\n", command.name);
  if (check_memory_avalid(kFirstCheckBytes) == 0) {
    diag("low memory .. \n");
    return;
  }
  diag("send firmware upgrade ACK .... \n");
  acknowledge_request(*context);
  // DELIBERATE: this one check also refuses when the memory figures are not to be had.
  if (check_memory_avalid(kSecondCheckBytes) < 1) {
    diag("low memory .. \n");
    return;
  }
  if (transfer_file(context, command, kFlashTransfer) != kSuccess) {
    return;
  }
  diag("REBOOT .... \n");
  sleep_seconds(3);
  ignore(restart_device(kRestartCode)); // refused: the daemon runs on
}

} // namespace rcmd
