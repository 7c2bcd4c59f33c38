#include "reporters/status.h"

#include "core/owned.h"
#include "core/text.h"
#include "platform/api/memory.h"
#include "reporters/netif.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

namespace rcmd {

char shared_empty_text[1] = "";

namespace {

constexpr std::size_t kStemBytes = 4; // "lan_" and "wan_"

// The interface that serves the variable; the text is nvram's, valid until its next call.
const char* interface_of(std::int32_t unit, const VariableEntry& row) {
  if (row.scope == kPlain && std::strncmp(row.name, "lan_", kStemBytes) == 0) {
    return nvram_text("lan_ifname");
  }
  if (row.scope == kPerWan && std::strncmp(row.name, "wan_", kStemBytes) == 0) {
    char key[40];
    std::snprintf(key, sizeof key, "wan%d_ifname", unit);
    return nvram_text(key);
  }
  return "";
}

char* number_text(long number) {
  char text[24];
  std::snprintf(text, sizeof text, "%ld", number);
  return strdup(text);
}

char* status_text(std::uint32_t admin_status) {
  return strdup(admin_status == 1 ? "1" : "0");
}

char* received_packets(const char* interface) {
  std::uint32_t count = 0;
  ignore(netif_get(interface, kIfInUcastPkts, &count)); // stays 0 without the interface
  return number_text(static_cast<long>(count));
}

char* sent_packets(const char* interface) {
  std::uint32_t received = 0;
  std::uint32_t count = 0;
  // The sent packets count only where the received ones are known.
  if (netif_get(interface, kIfInUcastPkts, &received) > 0) {
    ignore(netif_get(interface, kIfOutUcastPkts, &count)); // the interface is there
  }
  return number_text(static_cast<long>(count));
}

} // namespace

char* interfaces_info_get(std::int32_t unit, const VariableEntry* row) {
  ignore(netif_init()); // without it the list is empty, and so are the answers
  const char* interface = interface_of(unit, *row);
  const char* what = row->name + strnlen(row->name, kStemBytes);
  std::uint32_t admin_status = 0;
  if (std::strcmp(what, "status") == 0 && netif_get(interface, kIfAdminStatus, &admin_status) > 0) {
    return status_text(admin_status);
  }
  if (std::strcmp(what, "inpkts") == 0) {
    return received_packets(interface);
  }
  if (std::strcmp(what, "outpkts") == 0) {
    return sent_packets(interface);
  }
  // DELIBERATE: only here the list is freed, and only this answer is no text of the caller's own.
  netif_fina();
  return shared_empty_text;
}

char* memusage_get(std::int32_t, const VariableEntry*) {
  MemoryInfo info;
  if (memory_info(&info) != 0 || info.total == 0) {
    return strdup("");
  }
  const std::uint32_t available = (info.free + info.cached) * 100U / info.total;
  return number_text(static_cast<std::int32_t>(100U - available));
}

char* memtotal_get(std::int32_t, const VariableEntry*) {
  MemoryInfo info;
  if (memory_info(&info) != 0) {
    return strdup("");
  }
  const std::uint64_t bytes = std::uint64_t{info.total} * 1024;
  return number_text(static_cast<long>(std::min<std::uint64_t>(bytes, INT_MAX)));
}

} // namespace rcmd
