#include "variables/leases.h"

#include "core/owned.h"
#include "core/result.h"
#include "platform/api/files.h"
#include "platform/api/process.h"
#include "platform/api/system.h"
#include "variables/records.h"

#include <algorithm>
#include <arpa/inet.h>
#include <climits>
#include <cstdio>
#include <cstring>

namespace rcmd {

namespace {

constexpr int kWriteOutSignal = 16; // the user signal 1 of the device's processor
constexpr char kCountName[] = "lan_lease_maxunit";

void request_lease_file() {
  char tool[] = "killall";
  char option[16];
  char server[] = "udhcpd";
  std::snprintf(option, sizeof option, "-%d", kWriteOutSignal);
  char* const argv[] = {tool, option, server, nullptr};
  ignore(_eval(argv, ">/dev/console", 0, nullptr)); // without a server there may still be a file
}

bool is_free(const LeaseRecord& lease) {
  const std::uint8_t* mac = lease.hardware_address;
  return std::all_of(mac, mac + 6, [](std::uint8_t byte) { return byte == 0; });
}

// The system uptime at which the lease ends; the largest number stands for what is beyond it.
int lease_end(const LeaseRecord& lease) {
  const std::int64_t end = std::int64_t{system_uptime()} + lease.remaining_s;
  return static_cast<int>(std::min<std::int64_t>(end, INT_MAX));
}

int add_lease(RecordArea& area, int index, const LeaseRecord& lease) {
  const std::uint8_t* mac = lease.hardware_address;
  char host[sizeof lease.host_name + 1] = "unknown";
  if (lease.host_name[0] != '\0') {
    std::snprintf(host, sizeof host, "%.*s", static_cast<int>(sizeof lease.host_name),
                  lease.host_name);
  }
  in_addr address;
  std::memcpy(&address, lease.address, sizeof address);
  // DELIBERATE: the second byte of the MAC address is in lower case, the others in upper case.
  const bool fitted = area.records.append("lan_lease%d=%s,%02X:%02x:%02X:%02X:%02X:%02X,%s,%d",
                                          index, inet_ntoa(address), mac[0], mac[1], mac[2], mac[3],
                                          mac[4], mac[5], host, lease_end(lease));
  return fitted ? end_record(area) : kSuccess;
}

int send_leases(RecordArea& area, std::FILE* file) {
  int count = 0;
  LeaseRecord lease;
  while (safe_fread(&lease, sizeof lease, 1, file) != 0) {
    if (is_free(lease)) {
      continue;
    }
    if (add_lease(area, count, lease) != kSuccess) {
      return kFailure;
    }
    count++;
  }
  if (send_rest(area) != kSuccess) {
    return kFailure;
  }
  return send_count(area, kCountName, count);
}

} // namespace

int do_send_dhcp_status(RcmContext* context, PacketType type) {
  request_lease_file();
  RecordArea area = begin_records(*context, type, kPlain);
  std::FILE* file = std::fopen(device_path("/tmp/udhcpd.leases"), "r");
  if (file == nullptr) {
    // DELIBERATE: without a lease file the report goes on, whatever became of this packet.
    ignore(send_count(area, kCountName, 0));
    return kSuccess;
  }
  const int result = send_leases(area, file);
  std::fclose(file);
  return result;
}

} // namespace rcmd
