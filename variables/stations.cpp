#include "variables/stations.h"

#include "core/owned.h"
#include "core/result.h"
#include "core/text.h"
#include "platform/api/convert.h"
#include "platform/api/wireless.h"
#include "variables/keys.h"
#include "variables/records.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace rcmd {

namespace {

constexpr int kGetVariable = 262; // the driver's commands
constexpr int kGetSignalStrength = 127;
constexpr std::uint32_t kMaxStations = 256;
constexpr std::size_t kMaxInterfaceName = 64;

struct StationList { // as the driver fills it
  std::uint32_t count;
  std::uint8_t stations[kMaxStations][6];
};
static_assert(sizeof(StationList) == 1540);

struct SignalQuery { // as the driver takes and fills it
  std::int32_t strength;
  std::uint8_t station[6];
};
static_assert(sizeof(SignalQuery) == 12);

int send_stations(RecordArea& area, const char* interface_name, const StationList& list) {
  const int count = static_cast<int>(std::min(list.count, kMaxStations));
  for (int i = 0; i < count; i++) {
    SignalQuery query = {};
    std::memcpy(query.station, list.stations[i], sizeof query.station);
    if (wl_ioctl(interface_name, kGetSignalStrength, &query, sizeof query) < 0) {
      return kFailure;
    }
    char address[18];
    // DELIBERATE: the name says "wl0" whatever the unit is.
    if (area.records.append("wl0_sta%d=%s,%d", i, ether_etoa(list.stations[i], address),
                            query.strength) &&
        end_record(area) != kSuccess) {
      return kFailure;
    }
  }
  if (send_rest(area) != kSuccess) {
    return kFailure;
  }
  return send_count(area, "wl0_sta_maxunit", count);
}

int send_list(RcmContext& context, PacketType type, const char* interface_name, StationList& list) {
  constexpr char kRequest[] = "authe_sta_list";
  std::memcpy(&list, kRequest, sizeof kRequest);
  if (wl_ioctl(interface_name, kGetVariable, &list, sizeof list) != 0) {
    return kFailure;
  }
  RecordArea area = begin_records(context, type, kPlain);
  return send_stations(area, interface_name, list);
}

} // namespace

int do_send_wl_stalist(RcmContext* context, PacketType type) {
  const int unit = decimal(nvram_text("wl_unit"));
  if (unit < 0) {
    return kFailure;
  }
  char interface_name[kMaxInterfaceName] = {};
  copy_field(interface_name, sizeof interface_name - 1,
             nvram_text(wireless_key(unit, "ifname").text));
  auto* list = static_cast<StationList*>(std::calloc(1, sizeof(StationList)));
  if (list == nullptr) {
    return kFailure;
  }
  const int result = send_list(*context, type, interface_name, *list);
  std::free(list);
  return result;
}

} // namespace rcmd
