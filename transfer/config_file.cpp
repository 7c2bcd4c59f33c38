#include "transfer/config_file.h"

#include "core/owned.h"
#include "core/result.h"
#include "core/say.h"
#include "platform/api/files.h"
#include "platform/api/nvram.h"
#include "platform/api/system.h"
#include "rcm/packet.h"
#include "transfer/download.h"
#include "transfer/file_request.h"
#include "transfer/recovery.h"
#include "transfer/tool.h"

#include <csignal>

namespace rcmd {

namespace {

constexpr std::uint32_t kSpareBytes = 1024;
constexpr char kConfigFilePath[] = "/tmp/config.download";
constexpr const char* kImport[] = {"nvram", "import", kConfigFilePath, nullptr};

constexpr FileTransfer kConfigTransfer = {kConfReq, do_rcm_config_download, nullptr, nullptr,
                                          "do_rcm_download_config fail ... \n"};

} // namespace

int do_rcm_config_download(RcmContext* context, std::uint32_t total_length,
                           std::uint16_t fragment_count) {
  diag("Begin to download config file form RCM server totlen = %d , fragment = %d ... \n",
       static_cast<int>(total_length), fragment_count);
  const UniqueFd file(create_download_file(kConfigFilePath));
  if (!file) {
    return kFailure;
  }
  const Download download = {do_request_config_fragment, 0, fragment_count, "!",
                             "Peer Dead when upgrading config, Register again"};
  const int result = download_fragments(*context, download, file.get());
  if (result == kSuccess) {
    diag("Download config file OK!\n");
  }
  return result;
}

int do_rcm_config_upgrade() {
  int pid = 0;
  const int started = start_tool(kImport, &pid);
  if (started == 0) {
    // DELIBERATE: how the import ended is not looked at; nvram is made lasting either way.
    ignore(wait_process(pid));
    ignore(nvram_commit()); // the old image stands when it failed, and the device restarts
    sleep_seconds(1);
    diag("config done\n");
  }
  // DELIBERATE: the firmware's file goes; the configuration's stays until the restart.
  ignore(remove_device_file(kFirmwareFile));
  return started;
}

void rcm_config_upgrade_func(RcmContext* context) {
  FileCommand command;
  if (!read_file_command(*context, command)) {
    return;
  }
  if (file_fits(command, kSpareBytes) == 0) {
    diag("low memory .. \n");
    return;
  }
  acknowledge_request(*context);
  // DELIBERATE: after a failed download too, what has arrived is imported.
  ignore(transfer_file(context, command, kConfigTransfer));
  if (do_rcm_config_upgrade() != 0) {
    return;
  }
  ignore(signal_init(SIGTERM)); // process 1 restarts the device
  await_restart();
}

} // namespace rcmd
