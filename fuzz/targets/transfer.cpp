// The waits of a file transfer: the first byte chooses the file request, one of the two download
// windows, or a whole upgrade of the kind that writes to flash while it downloads. Then the first
// and the number of fragments (u16 each), and the script of what arrives.

#include "transfer/download.h"

#include "core/owned.h"
#include "fuzz/device.h"
#include "rcm/packet.h"
#include "transfer/file_request.h"
#include "transfer/flash.h"

#include <sys/mman.h>

namespace {

void request_file(rcmd::RcmContext& context, rcmd::PacketType type, std::uint16_t fragments) {
  rcmd::ignore(rcmd::do_request_file(&context, "image.trx", fragments * 1024U, fragments, type));
}

void download(rcmd::RcmContext& context, bool firmware, std::uint16_t first,
              std::uint16_t fragments) {
  const rcmd::UniqueFd file(memfd_create("download", MFD_CLOEXEC));
  const rcmd::Download what = {
      firmware ? rcmd::do_request_fw_fragment : rcmd::do_request_config_fragment, first,
      std::uint32_t{first} + fragments, firmware ? nullptr : "!", "dead"};
  if (rcmd::download_fragments(context, what, file.get()) == 0) {
    const auto size = static_cast<std::size_t>(lseek(file.get(), 0, SEEK_END));
    fuzz::demand(size <= fragments * 1024UL + rcmd::kBufferBytes,
                 "a download is no longer than its fragments");
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t which = input.byte() % 5;
  const std::uint16_t first = input.u16();
  const std::uint16_t fragments = input.u16();
  fuzz::Device device(input);
  fake::world().mtd.size = 1 << 20;
  device.run([&] {
    if (which < 2) {
      request_file(device.context, which == 0 ? rcmd::kFwReq : rcmd::kConfReq, fragments);
    } else if (which < 4) {
      download(device.context, which == 2, first, fragments);
    } else {
      rcmd::ignore(rcmd::do_rcm_download_and_upgrade_firmware(&device.context, fragments * 1024U,
                                                              fragments));
    }
  });
  fuzz::demand(fake::world().mtd.writes_without_erase == 0, "no flash is written unerased");
  return 0;
}
