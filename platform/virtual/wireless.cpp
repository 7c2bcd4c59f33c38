// The driver of a pretend access point, whose stations stand in run/stations.

#include "platform/api/wireless.h"
#include "platform/virtual/device.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr int kListStations = 262; ///< "authe_sta_list": count, then the addresses
constexpr int kStationSignal = 127;
constexpr size_t kMaxStations = 256;
constexpr size_t kStationsBytes = 8192;

struct Station {
  uint8_t mac[6];
  int32_t rssi;
};

struct SignalRecord {
  int32_t value;
  uint8_t mac[6];
  uint8_t padding[2];
};
static_assert(sizeof(SignalRecord) == 12);

bool parse(const char* line, Station* station) {
  unsigned parts[6] = {};
  int rssi = 0;
  if (sscanf(line, "%2x:%2x:%2x:%2x:%2x:%2x %d", &parts[0], &parts[1], &parts[2], &parts[3],
             &parts[4], &parts[5], &rssi) != 7) {
    return false;
  }
  for (int i = 0; i < 6; i++) {
    station->mac[i] = static_cast<uint8_t>(parts[i]);
  }
  station->rssi = rssi;
  return true;
}

size_t read_stations(Station stations[kMaxStations]) {
  char text[kStationsBytes];
  if (!rcmd::read_device_file("/run/stations", text, sizeof text)) {
    return 0;
  }
  size_t count = 0;
  const char* line = text;
  while (line != nullptr && count < kMaxStations) {
    count += parse(line, &stations[count]) ? 1 : 0;
    line = strchr(line, '\n');
    line = line == nullptr ? nullptr : line + 1;
  }
  return count;
}

int list_stations(uint8_t* buffer, size_t bytes) {
  constexpr char kRequest[] = "authe_sta_list";
  if (bytes < sizeof kRequest || memcmp(buffer, kRequest, sizeof kRequest) != 0) {
    return -1;
  }
  Station stations[kMaxStations];
  size_t count = read_stations(stations);
  const size_t room = (bytes - sizeof(uint32_t)) / sizeof stations[0].mac;
  count = count < room ? count : room;
  const auto number = static_cast<uint32_t>(count);
  memcpy(buffer, &number, sizeof number);
  for (size_t i = 0; i < count; i++) {
    memcpy(buffer + sizeof number + i * sizeof stations[i].mac, stations[i].mac,
           sizeof stations[i].mac);
  }
  return 0;
}

int station_signal(uint8_t* buffer, size_t bytes) {
  SignalRecord record = {};
  if (bytes < sizeof record) {
    return -1;
  }
  memcpy(&record, buffer, sizeof record);
  Station stations[kMaxStations];
  const size_t count = read_stations(stations);
  for (size_t i = 0; i < count; i++) {
    if (memcmp(stations[i].mac, record.mac, sizeof record.mac) == 0) {
      record.value = stations[i].rssi;
      memcpy(buffer, &record, sizeof record);
      return 0;
    }
  }
  return -1;
}

} // namespace

extern "C" {

int wl_ioctl(const char* interface_name, int command, void* buffer, int length_bytes) {
  if (interface_name == nullptr || *interface_name == '\0' || length_bytes < 0) {
    return -1;
  }
  auto* bytes = static_cast<uint8_t*>(buffer);
  const auto length = static_cast<size_t>(length_bytes);
  switch (command) {
  case kListStations:
    return list_stations(bytes, length);
  case kStationSignal:
    return station_signal(bytes, length);
  default:
    return -1;
  }
}

} // extern "C"
