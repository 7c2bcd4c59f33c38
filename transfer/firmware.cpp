#include "transfer/firmware.h"

#include "core/owned.h"
#include "core/result.h"
#include "core/say.h"
#include "platform/api/files.h"
#include "platform/api/ipsec.h"
#include "platform/api/system.h"
#include "rcm/packet.h"
#include "transfer/download.h"
#include "transfer/file_request.h"
#include "transfer/recovery.h"
#include "transfer/tool.h"
#include "transfer/trx.h"

#include <unistd.h>

namespace rcmd {

namespace {

constexpr std::uint32_t kSpareBytes = 1024;

constexpr const char* kClearPolicies[] = {"spi", "--clear", nullptr};
constexpr const char* kClearRoutes[] = {"eroute", "--clear", nullptr};
constexpr const char* kStopLed[] = {"killall", "bridge_led", nullptr};
constexpr const char* kStopTelnet[] = {"killall", "utelnetd", nullptr};
constexpr const char* kStopDhcp[] = {"killall", "udhcpd", nullptr};
constexpr const char* kStopWwanMonitor[] = {"killall", "wwan_monitor", nullptr};
constexpr const char* kStopPpp[] = {"killall", "pppd", nullptr};
constexpr const char* kStopWanMonitor[] = {"killall", "wanmonitor", nullptr};
constexpr const char* kWriteImage[] = {"mtd", "upgrade_trx", kFirmwareFile, "linux", nullptr};

constexpr FileTransfer kFirmwareTransfer = {kFwReq, do_rcm_download_firmware, nullptr, nullptr,
                                            "do_rcm_download_firmware fail ... \n"};

// A tool that is not there is no reason to stop: its results are dropped throughout.
void stop_services() {
  console("Stop ipsec...\n"); // a device without a console upgrades too
  ignore(unload_ipsec(0));
  ignore(stop_ike());
  sleep_seconds(2);
  ignore(run_to_console(kClearPolicies));
  ignore(run_to_console(kClearRoutes));
  sleep_seconds(2);
  diag("stop bridge_led\n");
  ignore(run_to_console(kStopLed));
  diag("stop utelnetd\n");
  ignore(run_to_console(kStopTelnet));
  diag("stop dhcp\n");
  ignore(run_to_console(kStopDhcp));
  diag("done\n");
}

void stop_wan() {
  ignore(run_to_console(kStopWwanMonitor));
  ignore(run_to_console(kStopPpp));
  ignore(run_to_console(kStopWanMonitor));
  sleep_seconds(1);
}

int check_image(int fd) {
  TrxHeader header;
  if (lseek(fd, 0, SEEK_SET) != 0 || !read_trx_header(fd, header)) {
    return kFailure;
  }
  if (!trx_header_is_good(header)) {
    diag("Bad trx header\n");
    return kFailure;
  }
  return check_trx_image(fd, header) ? kSuccess : kFailure;
}

} // namespace

int do_rcm_download_firmware(RcmContext* context, std::uint32_t total_length,
                             std::uint16_t fragment_count) {
  diag("Begin to download firmware form RCM server totlen = %d , fragment = %d ... \n",
       static_cast<int>(total_length), fragment_count);
  stop_services();
  const UniqueFd file(create_download_file(kFirmwareFile));
  if (!file) {
    return kFailure;
  }
  const Download download = {do_request_fw_fragment, 0, fragment_count, nullptr, kFirmwarePeerDead};
  const int result = download_fragments(*context, download, file.get());
  if (result != kSuccess) {
    return result;
  }
  diag("OK!\n");
  return check_image(file.get());
}

int do_rcm_upgrade() {
  int pid = 0;
  const int started = start_tool(kWriteImage, &pid);
  if (started == 0) {
    // DELIBERATE: how the flash tool ended is not looked at; the device restarts either way.
    ignore(wait_process(pid));
    diag("done\n");
  }
  ignore(remove_device_file(kFirmwareFile)); // a failed download has removed it already
  return started;
}

void rcm_upgradecmd_func(RcmContext* context) {
  FileCommand command;
  if (!read_file_command(*context, command)) {
    return;
  }
  diag("NAME=%s\n", command.name);
  if (file_fits(command, kSpareBytes) == 0) {
    diag("low memory .. \n");
    return;
  }
  acknowledge_request(*context);
  // DELIBERATE: after a failed download too the WAN side is stopped and the flash tool is started,
  // on a file that is not there any more, and the device restarts.
  ignore(transfer_file(context, command, kFirmwareTransfer));
  stop_wan();
  if (do_rcm_upgrade() != 0) {
    return;
  }
  diag("upgrade firmware finished ...\n");
  sleep_seconds(10);
  ignore(restart_device(kRestartCode)); // it returned: refused
  await_restart();
}

} // namespace rcmd
