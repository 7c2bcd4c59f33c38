// Everything that arrives at the management port of a registered device: requests of every type
// with their real handlers, acknowledgements, rubbish; and whatever the timers do in between.

#include "fuzz/device.h"
#include "rcm/client.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Device device(fuzz::Input(data, size));
  device.run([&] {
    register_fd_desc(device.context.sock, rcmd::rcm_receive_func, &device.context);
    device.arm_timers();
    device.play();
  });
  return 0;
}
