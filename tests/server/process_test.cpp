// The programs themselves on loopback: rcm-server, rcmctl and a small device played by the test.
#include "tests/fake_platform/fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using fake::Bytes;
using fake::bytes_of;
using testing::HasSubstr;

namespace {

/// A program with its standard output and error in one pipe.
class Program {
public:
  explicit Program(const std::vector<std::string>& words) {
    int ends[2];
    if (pipe(ends) != 0) {
      throw std::runtime_error("pipe");
    }
    pid_ = fork();
    if (pid_ == 0) {
      dup2(ends[1], 1);
      dup2(ends[1], 2);
      close(ends[0]);
      close(ends[1]);
      std::vector<char*> arguments;
      for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
      }
      arguments.push_back(nullptr);
      execv(arguments[0], arguments.data());
      _exit(127);
    }
    close(ends[1]);
    output_ = ends[0];
  }
  ~Program() {
    if (pid_ > 0) {
      stop(SIGKILL);
    }
    close(output_);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  std::string line() {
    std::string text;
    char c = 0;
    while (read(output_, &c, 1) == 1 && c != '\n') {
      text += c;
    }
    return text;
  }
  std::string rest() {
    std::string text;
    char buffer[4096];
    for (ssize_t n = 0; (n = read(output_, buffer, sizeof buffer)) > 0;) {
      text.append(buffer, static_cast<std::size_t>(n));
    }
    return text;
  }
  int wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
  }
  int stop(int signal = SIGTERM) {
    kill(pid_, signal);
    return wait();
  }

private:
  pid_t pid_ = -1;
  int output_ = -1;
};

/// A device that enrols when told and answers commands on a thread of its own.
class PretendDevice {
public:
  PretendDevice(std::uint16_t server_port, std::string serial = "SN0123456789")
      : serial_(std::move(serial)), socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    server.sin_port = htons(server_port);
    connect(socket_, reinterpret_cast<sockaddr*>(&server), sizeof server);
    const timeval patience{0, 20000};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }
  ~PretendDevice() {
    stopped_ = true;
    if (thread_.joinable()) {
      thread_.join();
    }
    close(socket_);
  }
  PretendDevice(const PretendDevice&) = delete;
  PretendDevice& operator=(const PretendDevice&) = delete;

  /// Sends until the answer comes, as often as a bad link asks for.
  Bytes ask(std::uint16_t type, std::uint16_t flags, const Bytes& payload, const Bytes& rest = {}) {
    for (int attempt = 0; attempt < 100 && !stopped_; attempt++) {
      seq_ += flags == 2 ? 1 : 0; // the transfer's requests count with every send
      Bytes packet = fake::server_packet(type, flags, seq_, payload, session_, serial_);
      packet.insert(packet.end(), rest.begin(), rest.end());
      send(packet);
      for (Bytes answer = receive(); !answer.empty() && !stopped_; answer = receive()) {
        if (fake::seq_of(answer) == seq_) {
          session_.assign(answer.begin(), answer.begin() + 8);
          return answer;
        }
      }
    }
    return {};
  }
  void enrol(const std::string& firmware = "1.0") {
    Bytes payload(200);
    payload[3] = uptime_;
    std::copy(firmware.begin(), firmware.end(), payload.begin() + 72);
    session_.assign(8, '\0');
    ask(1, 0, payload);
    ask(11, 0, {});
    ask(14, 0, {});
    seq_++;
    ask(3, 0, bytes_of(std::string("\0\0\0\0hostname=router\0lan_ipaddr=192.168.1.1\0", 43)));
    seq_++;
    ask(3, 0, bytes_of(std::string("\0\1\0\0wl_ssid=net\x1b[31m\xff\0", 22)));
    seq_++;
    ask(4, 0, bytes_of(std::string("\0\2\0\0wan_ipaddr=10.64.0.7\0", 25)));
    seq_++;
  }
  void run() {
    thread_ = std::thread([this] {
      while (!stopped_) {
        answer(receive());
      }
    });
  }
  void send(const Bytes& packet) {
    static_cast<void>(::send(socket_, packet.data(), packet.size(), 0));
  }
  Bytes receive() {
    Bytes packet(8192);
    const ssize_t length = recv(socket_, packet.data(), packet.size(), 0);
    packet.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    return packet;
  }

  std::string next_firmware = "1.0";
  Bytes fetched;    ///< the last file
  Bytes configured; ///< the records of the last CONFIG request
  std::atomic<int> commands = 0;

private:
  void answer(const Bytes& request) {
    if (request.size() < 36 || fake::flags_of(request) != 0 ||
        fake::seq_of(request) == restarted_by_) { // a copy of it finds the device's socket closed
      return;
    }
    Bytes reply(request.begin(), request.begin() + 36);
    reply[31] = 1;
    reply[32] = reply[33] = 0xFF;
    reply[34] = reply[35] = 0;
    send(reply);
    commands++;
    const std::uint16_t type = fake::type_of(request);
    restarted_by_ = type == 257 || type == 260 ? 0 : fake::seq_of(request);
    if (type == 257) {
      configured.assign(request.begin() + 40, request.end());
    } else if (type == 256 || type == 261) {
      fetch(request, type == 256 ? 8 : 13, type == 256 ? 6 : 12);
      restart();
    } else if (type == 258 || type == 259) {
      restart();
    }
  }
  void fetch(const Bytes& command, std::uint16_t request_type, std::uint16_t fragment_type) {
    const Bytes little_endian = {0xFF,        0xFF,        command[39], command[38],
                                 command[43], command[42], command[41], command[40]};
    const std::size_t name_end = command.size() - 1;
    ask(request_type, 2, little_endian,
        {command.begin() + 44, command.begin() + static_cast<std::ptrdiff_t>(name_end)});
    fetched.clear();
    for (std::uint16_t n = 0; n < fake::u16_at(command, 38); n++) {
      seq_++;
      const Bytes answer =
          ask(fragment_type, 2,
              {static_cast<std::uint8_t>(n >> 8), static_cast<std::uint8_t>(n & 0xFF), 0, 0});
      if (answer.size() > 40) {
        fetched.insert(fetched.end(), answer.begin() + 40, answer.end());
      }
    }
  }
  void restart() {
    seq_ = 0;
    uptime_++;
    enrol(next_firmware);
  }

  std::string serial_;
  std::string session_ = std::string(8, '\0');
  int socket_;
  std::uint32_t seq_ = 0;
  std::uint32_t restarted_by_ = 0; ///< the command's seq
  std::uint8_t uptime_ = 1;
  std::atomic<bool> stopped_ = false;
  std::thread thread_;
};

class Programs : public testing::Test {
protected:
  Programs() {
    char name[] = "/tmp/rcm-programs-XXXXXX";
    folder = mkdtemp(name);
  }
  ~Programs() override {
    server.reset();
    std::filesystem::remove_all(folder);
  }

  void serve(std::vector<std::string> options = {}) {
    std::vector<std::string> words{PROGRAM_DIR "/rcm-server",
                                   "--port",
                                   "0",
                                   "--bind",
                                   "127.0.0.1",
                                   "--http",
                                   "127.0.0.1:0",
                                   "--db",
                                   folder + "/db",
                                   "--log-level",
                                   "off"};
    words.insert(words.end(), options.begin(), options.end());
    server = std::make_unique<Program>(words);
    const std::string line = server->line(); // "rcm-server: devices on UDP A:P, HTTP on A:P"
    const std::size_t comma = line.find(',');
    ASSERT_NE(comma, std::string::npos) << line;
    port = static_cast<std::uint16_t>(std::stoi(line.substr(line.rfind(':', comma) + 1)));
    url = "http://" + line.substr(line.rfind(' ') + 1);
  }
  /// Runs rcmctl; its output stands in `text`. @return its exit status
  int rcmctl(std::vector<std::string> words) {
    words.insert(words.begin(), {PROGRAM_DIR "/rcmctl", "--server", url});
    Program program(words);
    text = program.rest();
    return program.wait();
  }

  std::string folder;
  std::unique_ptr<Program> server;
  std::uint16_t port = 0;
  std::string url;
  std::string text;
};

TEST_F(Programs, AnEnrolledDeviceIsShown) {
  serve();
  EXPECT_EQ(rcmctl({"devices"}), 0);
  EXPECT_EQ(text, "No device has registered.\n");
  PretendDevice device(port);
  device.enrol();
  EXPECT_EQ(rcmctl({"devices"}), 0);
  EXPECT_THAT(text, HasSubstr("SN0123456789  online"));
  EXPECT_EQ(rcmctl({"show", "SN0123456789"}), 0);
  EXPECT_THAT(text, HasSubstr("\nLAN\nNAME        UNIT  VALUE        REPORTED (UTC)\n"));
  EXPECT_THAT(text, HasSubstr("\nlan_ipaddr        192.168.1.1  "));
  EXPECT_THAT(text, HasSubstr("\nAdministration\n"));
  EXPECT_THAT(text, HasSubstr("\nWireless\n"));
  EXPECT_THAT(text, HasSubstr("wl_ssid  0     net\\x1b[31m\xEF\xBF\xBD")); // harmless
  EXPECT_THAT(text, HasSubstr("\nStatus\n"));
  EXPECT_EQ(rcmctl({"get", "SN0123456789", "hostname"}), 0);
  EXPECT_EQ(text, "router\n");
  EXPECT_EQ(rcmctl({"--json", "get", "SN0123456789", "wl_ssid", "--unit", "0"}), 0);
  EXPECT_THAT(text, HasSubstr("\"kind\":\"configuration\""));
}

TEST_F(Programs, ErrorsAreSaidAndCount) {
  serve();
  EXPECT_EQ(rcmctl({"show", "NOBODY"}), 1);
  EXPECT_EQ(text, "rcmctl: no device \"NOBODY\" has registered\n");
  EXPECT_EQ(rcmctl({"watch", "--count", "1", "--timeout", "0.01"}), 3);
  EXPECT_NE(rcmctl({"nonsense"}), 0);
  EXPECT_NE(rcmctl({}), 0);
  PretendDevice device(port);
  device.enrol();
  EXPECT_EQ(rcmctl({"get", "SN0123456789", "nothing"}), 1);
  EXPECT_EQ(text, "rcmctl: SN0123456789 has reported no nothing\n");
  EXPECT_EQ(rcmctl({"set", "SN0123456789", "nothing"}), 1);
  EXPECT_EQ(text, "rcmctl: \"nothing\" is not NAME=VALUE\n");
  EXPECT_EQ(rcmctl({"set", "SN0123456789", "hostname=x", "--timeout", "0.01"}), 3);
  EXPECT_EQ(text, "rcmctl: timed out; the operation is sent and goes on\n");
  EXPECT_EQ(rcmctl({"upgrade", "SN0123456789", folder + "/none"}), 1);
  EXPECT_THAT(text, HasSubstr("No such file"));
  EXPECT_EQ(server->stop(), 0);
  EXPECT_EQ(rcmctl({"devices"}), 2);
  EXPECT_THAT(text, HasSubstr("rcmctl: no server at http://127.0.0.1:"));
}

TEST_F(Programs, CommandsReachTheDevice) {
  serve();
  PretendDevice device(port);
  device.enrol();
  device.run();
  EXPECT_EQ(rcmctl({"set", "SN0123456789", "hostname=new name", "lan_ipaddr="}), 0);
  EXPECT_EQ(text, "SN0123456789: set done: acknowledged\n");
  EXPECT_EQ(device.configured,
            bytes_of(std::string("hostname=new name\0lan_ipaddr=\0\0\0\0\0", 34)));
  EXPECT_EQ(rcmctl({"status", "SN0123456789"}), 0);
  EXPECT_EQ(rcmctl({"commit", "SN0123456789", "--wait"}), 0);
  EXPECT_EQ(text, "SN0123456789: commit done: the device is back online\n");
  EXPECT_EQ(rcmctl({"restore-defaults", "SN0123456789", "--wait", "--json"}), 0);
  EXPECT_THAT(text, HasSubstr("\"state\":\"done\""));
  EXPECT_EQ(device.commands, 4);
  EXPECT_EQ(rcmctl({"operations", "SN0123456789"}), 0);
  EXPECT_THAT(text, HasSubstr("restore-defaults  done"));
}

TEST_F(Programs, AnImageIsFetchedByteForByte) {
  serve();
  std::string image(70 * 1024 + 5, '\0');
  for (std::size_t i = 0; i < image.size(); i++) {
    image[i] = static_cast<char>(i * 7 + i / 1024);
  }
  std::ofstream(folder + "/fw.trx") << image;
  PretendDevice device(port);
  device.enrol();
  device.next_firmware = "2.0";
  device.run();
  EXPECT_EQ(rcmctl({"upgrade", "SN0123456789", folder + "/fw.trx"}), 0);
  EXPECT_THAT(text, HasSubstr("100%\n"));
  EXPECT_THAT(text, HasSubstr("upgrade done: the device is back online with version 2.0\n"));
  EXPECT_EQ(device.fetched, bytes_of(image));
  EXPECT_EQ(rcmctl({"import", "SN0123456789", folder + "/fw.trx", "--name", "config"}), 0);
  EXPECT_THAT(text, HasSubstr("import done: the device is back online\n"));
}

TEST_F(Programs, ABadLinkIsSurvived) {
  serve({"--drop", "20", "--duplicate", "20", "--reorder", "20", "--seed", "5"});
  std::ofstream(folder + "/fw.trx") << std::string(5000, 'x');
  PretendDevice device(port);
  device.enrol();
  device.run();
  EXPECT_EQ(rcmctl({"get", "SN0123456789", "hostname"}), 0);
  EXPECT_EQ(text, "router\n");
  EXPECT_EQ(rcmctl({"import", "SN0123456789", folder + "/fw.trx"}), 0);
  EXPECT_EQ(device.fetched.size(), 5000U);
}

TEST_F(Programs, HistoryIsShown) {
  serve();
  PretendDevice device(port);
  device.enrol();
  device.ask(2, 0, bytes_of("2001-09-10 03:48:04s pppd[7]: up\x1b\n"));
  device.ask(64, 0,
             bytes_of(std::string("\0\0\x28\0\0\1\x58\x92"
                                  "20011009034800,10240,88210\r\n",
                                  36)));
  device.ask(9, 4, bytes_of(std::string("lat=40.7128;long=-74.006\0", 25)));
  device.ask(9, 4, bytes_of(std::string("lat=;long=\0", 11)));
  EXPECT_EQ(rcmctl({"logs", "SN0123456789"}), 0);
  EXPECT_EQ(text, "2001-09-10 03:48:04 pppd[7]: up\\x1b\n");
  EXPECT_EQ(rcmctl({"traffic", "SN0123456789"}), 0);
  EXPECT_THAT(text, HasSubstr("10.0 KiB  86.1 KiB\n"));
  EXPECT_THAT(text,
              HasSubstr("\n2001-10-09 03:48 |###########################################++++\n"));
  EXPECT_EQ(rcmctl({"positions", "SN0123456789"}), 0);
  EXPECT_THAT(text, HasSubstr("40.7128   -74.006\n"));
  EXPECT_EQ(rcmctl({"positions", "SN0123456789", "--gpx", "-"}), 0);
  EXPECT_THAT(text, HasSubstr("<trkpt lat=\"40.7128000\" lon=\"-74.0060000\"><time>20"));
  EXPECT_THAT(text, HasSubstr("rcmctl: 1 positions that are no degrees were left out\n"));
}

TEST_F(Programs, EventsAndNewLogLinesAreFollowed) {
  serve();
  PretendDevice device(port);
  device.enrol();
  Program watch(
      {PROGRAM_DIR "/rcmctl", "--server", url, "watch", "--event", "log", "--count", "1"});
  Program follow({PROGRAM_DIR "/rcmctl", "--server", url, "logs", "SN0123456789", "--follow",
                  "--timeout", "1"});
  std::string line;
  std::thread reader([&] { line = watch.rest(); });
  std::atomic<bool> over = false;
  std::thread reporter([&] { // a new line every few milliseconds until both have seen one
    for (int i = 0; !over && i < 2000; i++) {
      device.ask(2, 0, bytes_of("2001-09-10 03:48:04s line " + std::to_string(i) + "\n"));
      device.receive();
    }
  });
  reader.join();
  EXPECT_EQ(watch.wait(), 0);
  EXPECT_THAT(line, HasSubstr("SN0123456789 log: 1 lines\n    2001-09-10 03:48:04 line "));
  const std::string lines = follow.rest();
  over = true;
  reporter.join();
  EXPECT_EQ(follow.wait(), 0);
  EXPECT_THAT(lines, HasSubstr("line 0\n2001-09-10 03:48:04 line 1\n"));
}

TEST_F(Programs, ARestartedServerStillKnowsItsDevices) {
  serve();
  {
    PretendDevice device(port);
    device.enrol();
  }
  EXPECT_EQ(server->stop(SIGKILL), 256 + SIGKILL);
  serve();
  EXPECT_EQ(rcmctl({"get", "SN0123456789", "hostname"}), 0);
  EXPECT_EQ(text, "router\n");
  EXPECT_EQ(rcmctl({"devices"}), 0);
  EXPECT_THAT(text, HasSubstr("SN0123456789"));
  EXPECT_EQ(server->stop(SIGINT), 0);
}

TEST_F(Programs, RubbishDoesNotEndTheServer) {
  serve();
  PretendDevice device(port);
  std::uint32_t random = 3;
  for (std::size_t length = 0; length <= 40; length++) {
    Bytes rubbish(length);
    for (std::uint8_t& byte : rubbish) {
      random = random * 1664525 + 1013904223;
      byte = static_cast<std::uint8_t>(random >> 24);
    }
    device.send(rubbish);
  }
  device.send(Bytes(60000, 0xFF));
  device.enrol();
  EXPECT_EQ(rcmctl({"--json", "devices"}), 0);
  EXPECT_THAT(text, HasSubstr("SN0123456789"));
  EXPECT_EQ(server->stop(), 0);
}

class Clients : public Programs {
protected:
  int dial() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1))));
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return fd;
  }
  std::string exchange(const std::string& request) {
    const int fd = dial();
    static_cast<void>(::send(fd, request.data(), request.size(), MSG_NOSIGNAL));
    std::string answer;
    char buffer[4096];
    for (ssize_t n = 0; (n = recv(fd, buffer, sizeof buffer, 0)) > 0;) {
      answer.append(buffer, static_cast<std::size_t>(n));
    }
    close(fd);
    return answer;
  }
};

TEST_F(Clients, BadHttpIsAnsweredOrCutOff) {
  serve();
  exchange("rubbish\r\n\r\n");
  EXPECT_THAT(exchange("GET /nothing HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n"),
              HasSubstr("HTTP/1.1 404"));
  EXPECT_THAT(exchange("POST /devices/x/set HTTP/1.1\r\nHost: x\r\nContent-Length: 999999\r\n\r\n"),
              HasSubstr("HTTP/1.1 413"));
  exchange("GET /" + std::string(20000, 'x') + " HTTP/1.1\r\n\r\n");
  EXPECT_EQ(rcmctl({"devices"}), 0);
}

TEST_F(Clients, ASlowReaderOfEventsHoldsNobodyUp) {
  serve();
  const int slow = dial();
  const std::string request = "GET /events HTTP/1.1\r\nHost: x\r\n\r\n";
  static_cast<void>(::send(slow, request.data(), request.size(), MSG_NOSIGNAL));
  PretendDevice device(port);
  device.enrol();
  const Bytes large = bytes_of(std::string(4, '\0') + "a=" + std::string(7000, 'x') + '\0');
  for (int i = 0; i < 1500; i++) { // more than its socket and the server's patience hold
    ASSERT_FALSE(device.ask(static_cast<std::uint16_t>(3 + i % 2), 0, large).empty());
  }
  EXPECT_EQ(rcmctl({"devices"}), 0);
  close(slow);
}

TEST_F(Programs, HelpAndVersionAreGiven) {
  for (const char* name : {"rcm-server", "rcmctl"}) {
    Program help({std::string(PROGRAM_DIR "/") + name, "--help"});
    EXPECT_THAT(help.rest(), HasSubstr("--help"));
    EXPECT_EQ(help.wait(), 0);
    Program version({std::string(PROGRAM_DIR "/") + name, "--version"});
    EXPECT_EQ(version.rest(), std::string(name) + " 1.0.0\n");
    EXPECT_EQ(version.wait(), 0);
  }
}

TEST_F(Programs, WrongOptionsEndTheServer) {
  for (const auto& options : std::vector<std::vector<std::string>>{
           {"--drop", "101"}, {"--http", "here"}, {"--time-zone", "moon"}, {"stray"}}) {
    std::vector<std::string> words{PROGRAM_DIR "/rcm-server"};
    words.insert(words.end(), options.begin(), options.end());
    Program program(words);
    program.rest();
    EXPECT_NE(program.wait(), 0) << options[0];
  }
  Program program({PROGRAM_DIR "/rcm-server", "--port", "0", "--db", "/nowhere/at/all"});
  EXPECT_THAT(program.rest(), HasSubstr("cannot open the database /nowhere/at/all"));
  EXPECT_EQ(program.wait(), 1);
}

} // namespace
