#include "server/rcmctl.h"
#include "server/text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>

namespace server {

namespace {

std::int64_t number_at(const Json& json, const char* name) {
  return json.at(name).get<std::int64_t>();
}

std::string query_of(const HistoryOptions& options, int limit) {
  std::string query = "?limit=" + std::to_string(limit);
  if (options.hours > 0) {
    query += "&hours=" + std::to_string(options.hours);
  }
  return query;
}

void print_lines(const Client& client, const Json& lines, std::int64_t& last) {
  for (const Json& line : lines) {
    if (number_at(line, "id") <= last) {
      continue;
    }
    last = number_at(line, "id");
    if (client.json) {
      print_json(line);
    } else {
      print(utc_text(number_at(line, "time")) + " " +
            printable(line.at("message").get<std::string>()) + "\n");
    }
  }
}

struct Amount {
  std::int64_t tx = 0;
  std::int64_t rx = 0;
};

constexpr int kBarWidth = 48;
constexpr std::int64_t kMostBars = 30;

/// A bar per stretch of time: received "#", sent "+".
std::string plot(const Json& samples) {
  const std::int64_t first = number_at(samples.front(), "time");
  const std::int64_t span = number_at(samples.back(), "time") - first + 60;
  const std::int64_t step = std::max<std::int64_t>(60, (span / kMostBars + 59) / 60 * 60);
  std::map<std::int64_t, Amount> bars;
  for (const Json& sample : samples) {
    Amount& bar = bars[number_at(sample, "time") / step];
    bar.tx += std::max<std::int64_t>(number_at(sample, "tx"), 0);
    bar.rx += std::max<std::int64_t>(number_at(sample, "rx"), 0);
  }
  std::int64_t most = 1;
  for (const auto& [at, bar] : bars) {
    most = std::max(most, bar.tx + bar.rx);
  }
  std::string text =
      "\nReceived (#) and sent (+) per " + span_text(step) + ", at most " + bytes_text(most) + "\n";
  for (const auto& [at, bar] : bars) {
    const auto length = [most](std::int64_t bytes) {
      return static_cast<std::size_t>(static_cast<double>(bytes) / static_cast<double>(most) *
                                      kBarWidth);
    };
    text += utc_text(at * step).substr(0, 16) + " |" + std::string(length(bar.rx), '#') +
            std::string(length(bar.tx), '+') + "\n";
  }
  return text;
}

bool read_degrees(const Json& json, double& degrees, double most) {
  const auto& text = json.get_ref<const std::string&>();
  char* end = nullptr;
  degrees = std::strtod(text.c_str(), &end);
  return !text.empty() && *end == '\0' && degrees >= -most && degrees <= most;
}

std::string gpx_of(const std::string& serial, const Json& positions, int& left_out) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                     "<gpx version=\"1.1\" creator=\"rcmctl\" "
                     "xmlns=\"http://www.topografix.com/GPX/1/1\">\n<trk><name>";
  for (const char c : serial) {
    text += c == '<' ? "&lt;" : c == '&' ? "&amp;" : std::string(1, c);
  }
  text += "</name><trkseg>\n";
  for (const Json& position : positions) {
    double latitude = 0;
    double longitude = 0;
    if (!read_degrees(position.at("latitude"), latitude, 90) ||
        !read_degrees(position.at("longitude"), longitude, 180)) {
      left_out++;
      continue;
    }
    std::string time = utc_text(number_at(position, "received"));
    time[10] = 'T';
    char point[128];
    std::snprintf(point, sizeof point,
                  "<trkpt lat=\"%.7f\" lon=\"%.7f\"><time>%sZ</time></trkpt>\n", latitude,
                  longitude, time.c_str());
    text += point;
  }
  return text + "</trkseg></trk>\n</gpx>\n";
}

int write_gpx(const HistoryOptions& options, const Json& positions) {
  int left_out = 0;
  const std::string text = gpx_of(options.serial, positions, left_out);
  if (options.gpx == "-") {
    print(text);
  } else {
    std::ofstream file(options.gpx, std::ios::trunc);
    file << text << std::flush;
    if (!file) {
      throw ServerError("cannot write " + options.gpx);
    }
    print(std::to_string(static_cast<int>(positions.size()) - left_out) + " positions written to " +
          options.gpx + "\n");
  }
  if (left_out > 0) {
    std::fprintf(stderr, "rcmctl: %d positions that are no degrees were left out\n", left_out);
  }
  return kDone;
}

} // namespace

int show_logs(const Client& client, const HistoryOptions& options) {
  std::unique_ptr<EventStream> events;
  if (options.follow) { // opened first, so that no line falls between
    static_cast<void>(client.get(device_path(options.serial)));
    events = std::make_unique<EventStream>(client.url,
                                           "/events?serial=" + percent_encoded(options.serial));
  }
  std::int64_t last = 0;
  const std::string query = query_of(options, options.limit);
  print_lines(client, client.get(device_path(options.serial, "logs") + query), last);
  const Deadline deadline = deadline_in(options.timeout_s);
  while (events != nullptr) {
    const auto event = events->next(deadline);
    if (!event) {
      break;
    }
    if (event->name == "log") {
      print_lines(client, Json::parse(event->data).at("lines"), last);
    }
  }
  return kDone;
}

int show_traffic(const Client& client, const HistoryOptions& options) {
  const Json traffic =
      client.get(device_path(options.serial, "traffic") + query_of(options, options.limit));
  if (client.json) {
    print_json(traffic);
    return kDone;
  }
  std::vector<Row> rows{{"REPORTED (UTC)", "SENT", "RECEIVED"}};
  for (const Json& hour : traffic.at("hours")) {
    rows.push_back({utc_text(number_at(hour, "received")), bytes_text(number_at(hour, "tx")),
                    bytes_text(number_at(hour, "rx"))});
  }
  if (rows.size() == 1) {
    print("No traffic was reported.\n");
    return kDone;
  }
  print("Hourly totals\n" + table(rows));
  if (!traffic.at("samples").empty()) {
    print(plot(traffic.at("samples")));
  }
  return kDone;
}

int show_positions(const Client& client, const HistoryOptions& options) {
  const Json positions =
      client.get(device_path(options.serial, "positions") + query_of(options, options.limit));
  if (!options.gpx.empty()) {
    return write_gpx(options, positions);
  }
  if (client.json) {
    print_json(positions);
    return kDone;
  }
  std::vector<Row> rows{{"RECEIVED (UTC)", "LATITUDE", "LONGITUDE"}};
  for (const Json& position : positions) {
    rows.push_back({utc_text(number_at(position, "received")),
                    printable(position.at("latitude").get<std::string>()),
                    printable(position.at("longitude").get<std::string>())});
  }
  print(rows.size() == 1 ? "No position was reported.\n" : table(rows));
  return kDone;
}

} // namespace server
