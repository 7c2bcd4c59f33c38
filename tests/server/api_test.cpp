#include "server/api.h"

#include "tests/server/engine_fixture.h"

#include <filesystem>
#include <fstream>

using namespace server;
using fake::bytes_of;

namespace {

class Apis : public EngineFixture {
protected:
  Apis() : api(*engine, store, images, [this] { return now; }) {
    enrol();
    hear(kConf, 0, 1, bytes_of(std::string("\0\1\0\0wl_ssid=net\0wl_key=\xff\0", 25)));
    hear(kConf, 0, 1, bytes_of(std::string("\0\1\0\1wl_ssid=two\0", 16)));
    sent.clear();
  }
  void event(Event what) override {
    store.apply(what);
    EngineFixture::event(std::move(what));
  }
  ApiReply get(const std::string& target) { return api.handle({"GET", target, "", ""}); }
  ApiReply post(const std::string& target, const std::string& body = "") {
    return api.handle({"POST", target, "application/json", body});
  }

  Store store{":memory:"};
  ImageFiles images;
  Api api;
};

TEST_F(Apis, DevicesAreListed) {
  const ApiReply reply = get("/devices");
  EXPECT_EQ(reply.status, 200);
  ASSERT_EQ(reply.body.size(), 1U);
  EXPECT_EQ(reply.body[0]["serial"], "SN0123456789");
  EXPECT_EQ(reply.body[0]["online"], true);
  EXPECT_EQ(reply.body[0]["address"], "127.0.0.1:1161");
  EXPECT_EQ(reply.body[0]["session"], "53455353494f4e31");
}

TEST_F(Apis, VariablesAreFoundByNameAndUnit) {
  EXPECT_EQ(get("/devices/SN0123456789/variables").body.size(), 3U);
  EXPECT_EQ(get("/devices/SN0123456789/variables?name=wl_ssid").body.size(), 2U);
  const ApiReply one = get("/devices/SN0123456789/variables?name=wl%5Fssid&unit=1");
  ASSERT_EQ(one.body.size(), 1U);
  EXPECT_EQ(one.body[0]["value"], "two");
  EXPECT_EQ(one.body[0]["kind"], "configuration");
}

TEST_F(Apis, BytesThatAreNoTextAreShownAsReplacementCharacters) {
  const std::string text = dump_json(get("/devices/SN0123456789/variables?name=wl_key").body);
  EXPECT_NE(text.find("\"\xEF\xBF\xBD\""), std::string::npos) << text;
}

TEST_F(Apis, WhatIsUnknownIs404) {
  for (const char* target :
       {"/devices/NOBODY", "/devices/NOBODY/variables", "/devices/SN0123456789/nothing",
        "/devices/SN0123456789/variables/x", "/operations/77", "/nothing", "/devices/a/b/c/d"}) {
    const ApiReply reply = get(target);
    EXPECT_EQ(reply.status, 404) << target;
    EXPECT_TRUE(reply.body["error"].is_string());
  }
  EXPECT_EQ(post("/devices/NOBODY/status").status, 404);
  EXPECT_EQ(post("/devices/SN0123456789/explode").status, 404);
  EXPECT_EQ(post("/devices").status, 404);
}

TEST_F(Apis, BadRequestsAre400) {
  EXPECT_EQ(get("/devices/SN0123456789/logs?limit=many").status, 400);
  EXPECT_EQ(get("/devices/SN0123456789/variables?unit=-1").status, 400);
  EXPECT_EQ(get("/operations/x").status, 400);
  EXPECT_EQ(get("/devices/SN0123456789/logs?hours=9223372036854775807").status, 200);
  const std::string set = "/devices/SN0123456789/set";
  for (const char* body :
       {"", "{", "[]", "{}", R"({"values":[]})", R"({"values":{}})", R"({"values":{"a":1}})",
        R"({"values":{"a":"1"},"unit":-1})", R"({"values":{"a":"1"},"unit":65536})",
        R"({"values":{"a":"1"},"unit":"0"})", R"({"values":{"a":"x\u0000"}})",
        R"({"values":{"":"x"}})"}) {
    EXPECT_EQ(post(set, body).status, 400) << body;
  }
  EXPECT_TRUE(sent.empty());
}

TEST_F(Apis, ABrowsersFormIsNotTaken) {
  EXPECT_EQ(api.handle({"POST", "/devices/SN0123456789/commit", "text/plain", "{}"}).status, 415);
  EXPECT_EQ(api.handle({"DELETE", "/devices/SN0123456789", "", ""}).status, 405);
  EXPECT_TRUE(sent.empty());
}

TEST_F(Apis, ASetIsSentAndFollowed) {
  const ApiReply reply =
      post("/devices/SN0123456789/set", R"({"unit":1,"values":{"wl_ssid":"x"}})");
  EXPECT_EQ(reply.status, 202);
  EXPECT_EQ(reply.body["state"], "sent");
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(fake::type_of(sent[0].bytes), kConfig);
  acknowledge();
  const ApiReply after = get("/operations/" + std::to_string(reply.body["id"].get<int>()));
  EXPECT_EQ(after.body["state"], "done");
  EXPECT_EQ(after.body["final"], true);
  EXPECT_EQ(get("/operations?serial=SN0123456789").body.size(), 1U);
  EXPECT_EQ(get("/operations?serial=OTHER").body.size(), 0U);
}

TEST_F(Apis, EveryCommandHasItsType) {
  const std::string device = "/devices/SN0123456789/";
  post(device + "status");
  EXPECT_EQ(fake::type_of(sent[0].bytes), kSendStatus);
  acknowledge();
  sent.clear();
  post(device + "commit");
  EXPECT_EQ(fake::type_of(sent[0].bytes), kCommitReboot);
  acknowledge();
  advance(60'000);
  enrol();
  sent.clear();
  post(device + "restore-defaults");
  EXPECT_EQ(fake::type_of(sent[0].bytes), kRestoreDefaults);
}

TEST_F(Apis, HistoryIsReadBack) {
  hear(kLog, 0, 2, bytes_of("2001-09-09 01:46:00s one\n2001-09-09 01:46:01s two\n"));
  hear(kTraffic, 0, 2,
       bytes_of(std::string("\0\0\0\1\0\0\0\2"
                            "20010909014600,1,2\r\n",
                            28)));
  hear(kGps, 4, 2, bytes_of(std::string("lat=1;long=2\0", 13)));
  const std::string device = "/devices/SN0123456789/";
  EXPECT_EQ(get(device + "logs?limit=1").body[0]["message"], "two");
  EXPECT_EQ(get(device + "traffic?hours=1").body["hours"][0]["rx"], 2);
  EXPECT_EQ(get(device + "traffic?hours=1").body["samples"][0]["time"], 999999960);
  EXPECT_EQ(get(device + "positions").body[0]["longitude"], "2");
}

TEST_F(Apis, TheSummaryCountsDatagrams) {
  hear(Bytes(10));
  EXPECT_EQ(get("/").body["datagrams"]["malformed"], 1);
  EXPECT_EQ(get("/").body["devices"], 1);
}

TEST(Targets, AreTakenApartAndDecoded) {
  const Target target = split_target("//a%2Fb/c?x=1&y=%41%&z&=w");
  EXPECT_THAT(target.path, testing::ElementsAre("a/b", "c"));
  EXPECT_EQ(target.query.at("x"), "1");
  EXPECT_EQ(target.query.at("y"), "A%"); // half a code stays as it is
  EXPECT_EQ(target.query.at("z"), "");
  EXPECT_TRUE(split_target("").path.empty());
  EXPECT_TRUE(split_target("?").query.empty());
}

class Files : public Apis {
protected:
  Files() {
    char name[] = "/tmp/rcm-api-XXXXXX";
    folder = mkdtemp(name);
  }
  ~Files() override { std::filesystem::remove_all(folder); }
  std::string write(const std::string& name, std::size_t bytes) {
    std::ofstream(folder + "/" + name, std::ios::trunc) << std::string(bytes, 'x');
    return folder + "/" + name;
  }
  std::string error_of(const std::string& path) {
    const ApiReply reply = post("/devices/SN0123456789/upgrade", Json{{"path", path}}.dump());
    return reply.status == 400 ? reply.body["error"].get<std::string>() : "no error";
  }
  std::string folder;
};

TEST_F(Files, AFileIsOfferedUnderItsOwnName) {
  const ApiReply reply =
      post("/devices/SN0123456789/upgrade", Json{{"path", write("fw.trx", 1025)}}.dump());
  EXPECT_EQ(reply.status, 202);
  EXPECT_EQ(reply.body["name"], "fw.trx");
  EXPECT_EQ(reply.body["fragments"], 2);
  EXPECT_EQ(reply.body["length"], 1025);
}

TEST_F(Files, AFileMayBeGivenAnotherName) {
  const ApiReply reply = post("/devices/SN0123456789/import",
                              Json{{"path", write("c", 1)}, {"name", "config.txt"}}.dump());
  EXPECT_EQ(reply.body["name"], "config.txt");
  EXPECT_EQ(reply.body["kind"], "import");
}

TEST_F(Files, WhatCannotBeTransferredIsNamed) {
  EXPECT_EQ(error_of(folder + "/none"), folder + "/none: No such file or directory");
  EXPECT_EQ(error_of(folder), folder + ": is not a plain file");
  EXPECT_EQ(error_of(write("empty", 0)),
            folder + "/empty: is empty: a device would wait for its first fragment for ever");
  const std::string large = write("large", 0);
  std::filesystem::resize_file(large, 65535 * 1024 + 1);
  EXPECT_EQ(error_of(large), large + ": has 67107841 bytes; at most 67107840 can be transferred");
  EXPECT_EQ(error_of("fw.trx"), "\"path\" must be the absolute path of a file on the server");
}

TEST_F(Files, AFileThatIsCutWhileItIsServedHarmsNobody) {
  const std::string path = write("fw.trx", 2048);
  const auto image = images.load(path);
  std::filesystem::resize_file(path, 0);
  EXPECT_EQ(image->fragment(1).size(), 1024U);
  EXPECT_EQ(image->fragment(1)[1023], 'x');
}

TEST_F(Files, DevicesShareTheImageOfOneFile) {
  const std::string path = write("fw.trx", 2048);
  const auto image = images.load(path);
  EXPECT_EQ(images.load(path), image);
  std::filesystem::resize_file(path, 2047);
  EXPECT_NE(images.load(path), image);
}

} // namespace
