#include "reporters/system_log.h"

#include "core/say.h"
#include "core/text.h"
#include "platform/api/ipc.h"
#include "platform/api/nvram.h"
#include "platform/api/system.h"
#include "reporters/syslog_ring.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/sem.h>

namespace rcmd {

namespace {

// Waits until nothing is being written and counts this reader in; the kernel undoes the count
// should the process end.
constexpr sembuf SMrdn[] = {{kWriterSemaphore, 0, 0}, {kReadersSemaphore, 1, SEM_UNDO}};
// Counts this reader out.
constexpr sembuf SMrup[] = {{kReadersSemaphore, -1, IPC_NOWAIT | SEM_UNDO}};

// The segment is attached once and stays so; the semaphore set is looked up on every call.
int shm_id = -1;
int sem_id = -1;
void* ring = nullptr;
std::size_t ring_bytes = 0;

struct Switch {
  const char* key;
  const char* marker;
};
constexpr Switch kSwitches[] = {
    {"rcm_log_pppd", "pppd["},         {"rcm_log_modem", "modem["},
    {"rcm_log_pluto", "pluto["},       {"rcm_log_udhcpd", "udhcpd:"},
    {"rcm_log_syslogd", "-- MARK --"}, {"rcm_log_dnsmasq", "dnsmasq["},
};

// A line on its way from one or several records to the output.
struct Line {
  char text[kMaxLineChars + 1];
  std::size_t length;
  char* first; ///< the mark, in the ring; null when no line is being assembled
};

struct Stamp {
  std::uint32_t since_boot_s;
  const char* message; ///< without its newline
};

struct Output {
  char* data;
  std::size_t capacity;
  std::size_t used;
};

enum class Taken { kReported, kDropped, kNoRoom, kNoStamp };

void attach() {
  shm_id = ipc_shmget(kSyslogRingKey, 0, 0);
  if (shm_id == -1) {
    log_error_exit("Can't find circular buffer");
  }
  ring = ipc_shmat(shm_id, nullptr, 0);
  // DELIBERATE: a failed attachment is told in the words for a null address; the all-ones address
  // that stands for it is never touched.
  if (ring == nullptr || reinterpret_cast<std::uintptr_t>(ring) == UINTPTR_MAX) {
    log_error_exit("Can't get access to circular buffer from syslogd");
  }
  ring_bytes = ipc_shm_bytes(shm_id);
}

template <std::size_t count> void operate(const sembuf (&operations)[count], const char* failure) {
  sembuf passed[count];
  std::copy_n(operations, count, passed);
  if (ipc_semop(sem_id, passed, count) == -1) {
    log_error_exit(failure);
  }
}

void forget(Line& line) {
  line.length = 0;
  line.first = nullptr;
}

// Appends a record. An empty one begins no line: it has no character that could be the mark.
// @return true when the line is complete
bool append(Line& line, const RingRecord& record) {
  if (record.length == 0) {
    return false;
  }
  if (line.first == nullptr) {
    line.first = record.text;
  }
  const std::size_t taken = std::min(record.length, kMaxLineChars - line.length);
  std::memcpy(line.text + line.length, record.text, taken);
  line.length += taken;
  line.text[line.length] = '\0';
  return line.text[line.length - 1] == '\n' || record.text[record.length - 1] == '\n';
}

bool is_space(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// Cuts off the next token and leaves `at` behind the blank that ended it, or at the text's end.
// @return null when there is none
char* next_token(char*& at) {
  while (is_space(*at)) {
    at++;
  }
  if (*at == '\0') {
    return nullptr;
  }
  char* token = at;
  at += std::strcspn(at, " ");
  if (*at == ' ') {
    *at++ = '\0';
  }
  return token;
}

// Takes the line apart, in place. @return false when it has no readable time of day
bool read_stamp(Line& line, Stamp& stamp) {
  line.text[line.length - 1] = '\0'; // the newline, or what stands there in a line that was cut
  char* at = line.text + std::min<std::size_t>(line.length - 1, 2);
  const char* days = next_token(at);
  next_token(at);
  const char* time_of_day = next_token(at);
  if (days == nullptr || time_of_day == nullptr) {
    return false;
  }
  int hours = 0;
  int minutes = 0;
  int seconds = 0;
  if (std::sscanf(time_of_day, "%02d:%02d:%02d", &hours, &minutes, &seconds) != 3) {
    return false;
  }
  stamp.since_boot_s = static_cast<std::uint32_t>(decimal(days)) * 86400U +
                       static_cast<std::uint32_t>(hours * 3600 + minutes * 60 + seconds);
  next_token(at);
  next_token(at);
  while (is_space(*at)) {
    at++;
  }
  stamp.message = at;
  return true;
}

// Appends "DATE TIMEs MESSAGE\n". @return false when it does not fit; nothing is written then
bool write_line(Output& output, const Stamp& stamp, const RcmContext& context) {
  // Times are 32-bit and signed, and wrap.
  const auto time = static_cast<std::int32_t>(
      static_cast<std::uint32_t>(context.server_time) -
      static_cast<std::uint32_t>(context.server_time_uptime) + stamp.since_boot_s);
  const std::time_t seconds = time;
  tm utc{};
  gmtime_r(&seconds, &utc);
  char date[96];
  // DELIBERATE: the time carries a letter "s", which the server expects.
  const int date_length =
      std::snprintf(date, sizeof date, "%04d-%02d-%02d %02d:%02d:%02ds ", utc.tm_year + 1900,
                    utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
  const auto date_bytes = static_cast<std::size_t>(date_length);
  const std::size_t message_bytes = std::strlen(stamp.message);
  if (date_bytes + message_bytes + 1 > output.capacity - output.used) {
    return false;
  }
  char* at = output.data + output.used;
  std::memcpy(at, date, date_bytes);
  std::memcpy(at + date_bytes, stamp.message, message_bytes);
  at[date_bytes + message_bytes] = '\n';
  output.used += date_bytes + message_bytes + 1;
  return true;
}

// Decides on a complete line, writes it and marks it.
Taken take(Line& line, Output& output, const RcmContext& context) {
  if (line.text[0] != kUnreported || rcm_log_filter(line.text) == 0) {
    return Taken::kDropped;
  }
  Stamp stamp{};
  if (!read_stamp(line, stamp)) {
    return Taken::kNoStamp;
  }
  if (!write_line(output, stamp, context)) {
    return Taken::kNoRoom;
  }
  // DELIBERATE: the mark is written under the reader's hold and not under a writer's lock: it is
  // one byte of a record that the syslog daemon leaves alone until its writing comes round to it.
  *line.first = kReported;
  return Taken::kReported;
}

// @return false when a line's stamp could not be read
bool collect(RingWalk walk, Output& output, const RcmContext& context) {
  static Line line;
  forget(line);
  RingRecord record{};
  for (int reported = 0; reported < kLinesPerCall && next_record(walk, record);) {
    if (!append(line, record)) {
      continue;
    }
    const Taken taken = take(line, output, context);
    if (taken == Taken::kNoStamp || taken == Taken::kNoRoom) {
      return taken == Taken::kNoRoom;
    }
    reported += taken == Taken::kReported ? 1 : 0;
    forget(line);
  }
  return true;
}

} // namespace

int get_system_log(char* output, std::size_t capacity, const RcmContext& context) {
  if (ring == nullptr) {
    attach();
  }
  sem_id = ipc_semget(kSyslogRingKey, 0, 0);
  if (sem_id == -1) {
    log_error_exit("Can't get access to semaphone(s) for circular buffer from syslogd");
  }
  operate(SMrdn, "semop[SMrdn]");
  Output written{output, capacity, 0};
  const RingWalk walk = walk_ring(ring, ring_bytes);
  if (ring_is_sound(walk) && !collect(walk, written, context)) {
    // DELIBERATE: the reader is not counted out here; the kernel does it when the process ends.
    return -1;
  }
  operate(SMrup, "semop[SMrup]");
  return static_cast<int>(written.used);
}

int rcm_log_filter(const char* line) {
  for (const Switch& source : kSwitches) {
    const char* value = nvram_get(source.key);
    if (value != nullptr && std::strcmp(value, "0") == 0 &&
        std::strstr(line, source.marker) != nullptr) {
      return 0;
    }
  }
  return 1;
}

void log_error_exit(const char* message) {
  diag("%s", message);
  if (shm_id != -1) {
    ipc_shmdt(ring);
    shm_id = -1; // a test goes on behind the end of its process
    ring = nullptr;
  }
  exit_process(1);
}

} // namespace rcmd
