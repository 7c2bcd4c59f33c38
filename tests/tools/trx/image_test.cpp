#include "tools/trx/image.h"

#include "tests/fake_platform/fixture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

std::string hex_of(const std::string& bytes) {
  return fake::to_hex(bytes.data(), bytes.size());
}

TEST(TrxImage, AnImageHoldsHeaderAndPart) {
  const auto image = trx::make_image({"hello"}, false);
  ASSERT_TRUE(image);
  EXPECT_EQ(hex_of(*image), "48445230"
                            "21000000"
                            "9b1a621b"
                            "00000100"
                            "1c000000"
                            "00000000"
                            "00000000"
                            "68656c6c6f");
  EXPECT_EQ(trx::find_fault(*image), std::nullopt);
}

TEST(TrxImage, EveryPartBeginsOnAMultipleOfFour) {
  const auto image = trx::make_image({"hello", "ab", "c"}, false);
  const auto info = trx::read_image(image.value());
  ASSERT_TRUE(info);
  EXPECT_EQ(info->offsets, (std::array<std::uint32_t, 3>{28, 36, 40}));
  EXPECT_EQ(info->length, 41U);
  EXPECT_EQ(image->substr(33), std::string("\0\0\0ab\0\0c", 8));
}

TEST(TrxImage, TheFlagIsBitZero) {
  EXPECT_EQ(trx::read_image(trx::make_image({"x"}, true).value())->flag_version, 0x00010001U);
}

TEST(TrxImage, AVersionLineIsFoundAgain) {
  const auto image = trx::make_image({trx::version_line("1.2.3") + "code"}, false);
  EXPECT_EQ(trx::read_image(image.value())->version, "1.2.3");
  EXPECT_EQ(trx::read_image(trx::make_image({"code"}, false).value())->version, std::nullopt);
  EXPECT_EQ(trx::read_image(trx::make_image({"version=1"}, false).value())->version, std::nullopt);
}

TEST(TrxImage, AnImageHasAtMost7864320Bytes) {
  const auto image = trx::make_image({std::string(7864320 - 28, 'x')}, false);
  ASSERT_TRUE(image);
  EXPECT_EQ(trx::find_fault(*image), std::nullopt);
  EXPECT_FALSE(trx::make_image({std::string(7864320 - 27, 'x')}, false));
}

TEST(TrxImage, EachFaultIsNamed) {
  const std::string good = trx::make_image({std::string(5000, 'x')}, false).value();
  const auto with = [&](std::size_t at, char byte) {
    std::string changed = good;
    changed[at] = byte;
    return trx::find_fault(changed);
  };
  EXPECT_EQ(trx::find_fault(good.substr(0, 27)), "no TRX header");
  EXPECT_EQ(with(0, 'h'), "no TRX header");
  EXPECT_EQ(with(7, '\x7F'), "its length 2130711460 is not one of 28 to 7864320");
  EXPECT_EQ(trx::find_fault(good.substr(0, 5027)), "truncated: 5027 of 5028 bytes");
  EXPECT_EQ(with(8, '\0'), "wrong checksum");
  EXPECT_EQ(with(12, '\1'), "wrong checksum");
  EXPECT_EQ(with(5027, 'y'), "wrong checksum");
  EXPECT_EQ(trx::find_fault(good + "behind"), std::nullopt);
}

class Mktrx : public ::testing::Test {
protected:
  Mktrx() {
    char name[] = "/tmp/mktrx-XXXXXX";
    folder_ = mkdtemp(name);
    std::ofstream(folder_ + "/part") << std::string(3000, 'k');
  }
  ~Mktrx() override { std::filesystem::remove_all(folder_); }

  int run(const std::string& arguments, std::string* output = nullptr) {
    const std::string command =
        "cd " + folder_ + " && " PROGRAM_DIR "/mktrx " + arguments + " >out 2>&1";
    const int status = std::system(command.c_str());
    if (output != nullptr) {
      *output = content("out");
    }
    return WEXITSTATUS(status);
  }
  [[nodiscard]] std::string content(const std::string& name) const {
    std::ifstream file(folder_ + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::string folder_;
};

TEST_F(Mktrx, MakesAnImageThatItThenFindsSound) {
  EXPECT_EQ(run("make part --version 9.8.7 -o image.trx"), 0);
  EXPECT_EQ(content("image.trx").substr(28), "version=9.8.7\n" + std::string(3000, 'k'));
  EXPECT_EQ(run("check image.trx"), 0);
  std::string output;
  EXPECT_EQ(run("info image.trx", &output), 0);
  EXPECT_NE(output.find("length    3042 of the file's 3042 bytes\n"), std::string::npos);
  EXPECT_NE(output.find("version   9.8.7\n"), std::string::npos);
  EXPECT_NE(output.find("verdict   sound\n"), std::string::npos);
}

TEST_F(Mktrx, NamesWhatIsWrongWithAnImage) {
  ASSERT_EQ(run("make part -o image.trx"), 0);
  std::fstream(folder_ + "/image.trx", std::ios::in | std::ios::out | std::ios::binary).seekp(100)
      << 'X';
  std::string output;
  EXPECT_EQ(run("check image.trx", &output), 1);
  EXPECT_EQ(output, "mktrx: image.trx: wrong checksum\n");
  EXPECT_EQ(run("info image.trx", &output), 0);
  EXPECT_NE(output.find("verdict   wrong checksum\n"), std::string::npos);
  EXPECT_EQ(run("info part", &output), 1);
}

TEST_F(Mktrx, TellsWrongUseFromFailure) {
  EXPECT_EQ(run("--help"), 0);
  EXPECT_EQ(run("make --help"), 0);
  EXPECT_EQ(run(""), 2);
  EXPECT_EQ(run("make part"), 2);
  EXPECT_EQ(run("make part part part part -o image.trx"), 2);
  EXPECT_EQ(run("make absent -o image.trx"), 1);
  EXPECT_EQ(run("make part -o absent/image.trx"), 1);
  EXPECT_EQ(run("check absent"), 1);
  EXPECT_EQ(run("check ."), 1);
  EXPECT_EQ(run("make . -o image.trx"), 1);
}

// A program that is not of this project reads the image as it was meant.
TEST_F(Mktrx, AnImageIsReadAlikeByBinwalk) {
  if (std::system("command -v binwalk >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "binwalk is not installed";
  }
  ASSERT_EQ(run("make part -o image.trx"), 0);
  const std::string command =
      "cd " + folder_ + " && HOME=" + folder_ + " binwalk image.trx >seen 2>&1";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const std::string seen = content("seen");
  EXPECT_NE(seen.find("TRX firmware header, little endian, image size: 3028 bytes"),
            std::string::npos)
      << seen;
  EXPECT_NE(seen.find("flags: 0x0, version: 1, header size: 28 bytes"), std::string::npos) << seen;
}

} // namespace
