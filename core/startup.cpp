#include "core/startup.h"

#include "core/context.h"
#include "core/owned.h"
#include "core/say.h"
#include "core/text.h"
#include "local/deskmgr.h"
#include "local/scantools.h"
#include "platform/api/convert.h"
#include "platform/api/event_loop.h"
#include "platform/api/system.h"
#include "rcm/client.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <getopt.h>

namespace rcmd {

namespace {

constexpr std::uint16_t kServerPort = 1162;
constexpr int kMinGpsInterval_s = 10;
constexpr int kDatagramMode = 1;
constexpr char kLookupFailed[] = "name lookup failed";

struct Options {
  const char* server;
  const char* domain;
};

// The context and its buffers live as long as the process. The receive buffer's guard bytes are
// zero and stay so.
RcmContext* create_context() {
  auto* context = static_cast<RcmContext*>(std::calloc(1, sizeof(RcmContext)));
  if (context != nullptr) {
    context->in_use = 1;
  }
  return context;
}

bool create_buffers(RcmContext& context) {
  context.rx_buf = static_cast<std::uint8_t*>(std::calloc(1, kBufferBytes + kRxGuardBytes));
  if (context.rx_buf == nullptr) {
    return false;
  }
  context.tx_buf = static_cast<std::uint8_t*>(std::calloc(1, kBufferBytes));
  return context.tx_buf != nullptr;
}

void read_identity(RcmContext& context) {
  copy_field(context.serial, sizeof context.serial, nvram_text("SN"));
  copy_field(context.firmware_version, sizeof context.firmware_version,
             nvram_text("version_firmware"));
  copy_field(context.product_model, sizeof context.product_model, nvram_text("product_model"));
  context.online = 1;
}

void read_gps_interval() {
  gps_send_interval = std::max(decimal(nvram_text("gps_send_interval")), kMinGpsInterval_s);
}

Options read_options(int argc, char** argv) {
  Options options{nullptr, nullptr};
  opterr = 0; // a wrong option ends the process without a word
  int option = 0;
  while ((option = getopt(argc, argv, "m:ds:")) != -1) {
    switch (option) {
    case 'm':
      options.domain = optarg;
      break;
    case 'd':
      debug = 1;
      break;
    case 's':
      options.server = optarg;
      break;
    default:
      act_exit();
    }
  }
  if (optind < argc) {
    act_exit();
  }
  return options;
}

// Asks once a second, without limit, while the name does not resolve now.
in_addr resolve_server(const char* server) {
  in_addr address{};
  for (;;) {
    const char* error = atoaddr(server, 0, &address);
    if (error == nullptr) {
      return address;
    }
    if (std::strcmp(error, kLookupFailed) != 0) {
      console("can not resolve %s \n", server);
      act_exit();
    }
    sleep_seconds(1);
  }
}

} // namespace

void act_exit() {
  exit_process(1);
}

int run_daemon(int argc, char** argv) {
  RcmContext* context = create_context();
  if (context == nullptr) {
    return -1;
  }
  read_identity(*context);
  if (!create_buffers(*context)) {
    return -1;
  }
  context->server_addr.sin_family = AF_INET;
  context->server_addr.sin_port = htons(kServerPort);
  read_gps_interval();

  const Options options = read_options(argc, argv);
  if (options.server == nullptr) {
    console("miss rcm server ... \n");
    act_exit();
  }
  const in_addr server = resolve_server(options.server);
  // DELIBERATE: a missing domain is told only once the server's name has resolved.
  if (options.domain == nullptr) {
    console("miss rcm domain ... \n");
    act_exit();
  }
  copy_field(context->domain, sizeof context->domain, options.domain);
  context->server_addr.sin_addr = server;
  if (server.s_addr == 0) {
    act_exit();
  }

  // What cannot be opened leaves the rest running, so none of the three results is looked at.
  ignore(deskmgr_open(kDatagramMode));
  ignore(scantools_open(kDatagramMode));
  ignore(rcm_open(context));
  do_fd();
  return 0;
}

} // namespace rcmd
