#include "transfer/trx.h"

#include "core/owned.h"
#include "tests/transfer/server.h"

#include <fcntl.h>

using namespace rcmd;
using fake::Bytes;
using fake::put32;
using fake::trx_image;
using fake::world;

namespace {

class TrxImages : public fake::TransferFixture {
protected:
  // The whole check as the firmware download makes it.
  static bool check(const Bytes& image) {
    world().write_file("/tmp/image", std::string(image.begin(), image.end()));
    const UniqueFd fd(open(world().path("/tmp/image").c_str(), O_RDONLY));
    TrxHeader header;
    return read_trx_header(fd.get(), header) && trx_header_is_good(header) &&
           check_trx_image(fd.get(), header);
  }
  static bool header_is_good(std::uint32_t magic, std::uint32_t len) {
    TrxHeader header{};
    header.magic = magic;
    header.len = len;
    return trx_header_is_good(header);
  }
};

TEST_F(TrxImages, AnImageWrittenOutByHandIsGood) {
  EXPECT_TRUE(check(fake::hex("48445230 21000000 9b1a621b 00000100"
                              "1c000000 00000000 00000000 68656c6c6f")));
  EXPECT_EQ(world().diagnostics(), "CRC OK 1b621a9b \n");
}

TEST_F(TrxImages, TheMagicAndBothBoundsOfTheLengthAreChecked) {
  EXPECT_TRUE(header_is_good(0x30524448, 28));
  EXPECT_TRUE(header_is_good(0x30524448, 0x780000));
  EXPECT_FALSE(header_is_good(0x30524448, 27));
  EXPECT_FALSE(header_is_good(0x30524448, 0x780001));
  EXPECT_FALSE(header_is_good(0x30524448, 0xFFFFFFFF));
  EXPECT_FALSE(header_is_good(0x30524449, 28));
}

TEST_F(TrxImages, TwentySevenBytesHoldNoHeader) {
  EXPECT_FALSE(check(Bytes(27, 0)));
  EXPECT_EQ(world().diagnostics(), "");
}

TEST_F(TrxImages, AFailedReadCountsAsNoBytes) {
  TrxHeader header{};
  header.len = 2000;
  EXPECT_FALSE(check_trx_image(-1, header));
  EXPECT_EQ(world().diagnostics(), "Truncated file (actual 0 expect 996)\n");
}

TEST_F(TrxImages, AnImageOf1024BytesIsCompared) {
  Bytes image = trx_image(1024);
  EXPECT_TRUE(check(image));
  image[8] ^= 1;
  EXPECT_FALSE(check(image));
  EXPECT_TRUE(world().diagnostics().ends_with("Bad CRC\n"));
}

TEST_F(TrxImages, AHeaderAloneIsCompared) {
  Bytes image = trx_image(28);
  EXPECT_TRUE(check(image));
  image[20] ^= 1;
  EXPECT_FALSE(check(image));
  EXPECT_TRUE(world().diagnostics().ends_with("Bad CRC\n"));
}

TEST_F(TrxImages, AnImageOf1025BytesIsAcceptedWhateverItsChecksum) {
  Bytes image = trx_image(1025);
  put32(image, 8, 0x12345678);
  EXPECT_TRUE(check(image));
  EXPECT_TRUE(world().diagnostics().starts_with("CRC OK "));
}

TEST_F(TrxImages, TheComputedChecksumIsPrinted) {
  Bytes image = trx_image(70000);
  const std::string stored = fake::to_hex({image[11], image[10], image[9], image[8]});
  put32(image, 8, 0);
  EXPECT_TRUE(check(image));
  EXPECT_EQ(world().diagnostics(), "CRC OK " + stored + " \n");
}

TEST_F(TrxImages, BytesBehindTheLengthAreNotRead) {
  Bytes image = trx_image(1000);
  image.resize(5000);
  EXPECT_TRUE(check(image));
}

TEST_F(TrxImages, AnImageCutInItsFirstChunkIsTruncated) {
  Bytes image = trx_image(2000);
  image.resize(500);
  EXPECT_FALSE(check(image));
  EXPECT_EQ(world().diagnostics(), "Truncated file (actual 472 expect 996)\n");
}

TEST_F(TrxImages, AnImageCutInALaterChunkIsTruncated) {
  Bytes image = trx_image(3000);
  image.resize(2999);
  EXPECT_FALSE(check(image));
  EXPECT_EQ(world().diagnostics(), "Truncated file (actual 951 expect 952)\n");
}

TEST_F(TrxImages, WithTheFlagTheHeaderIsTakenOffAndNoByteSkipped) {
  Bytes image = trx_image(1052, 1); // 1024 bytes behind the header: one chunk
  EXPECT_TRUE(check(image));
  image[8] ^= 1;
  EXPECT_FALSE(check(image));
  EXPECT_TRUE(world().diagnostics().ends_with("Bad CRC\n"));
  image = trx_image(1053, 1);
  image[8] ^= 1;
  EXPECT_TRUE(check(image));
  image.resize(1052);
  EXPECT_FALSE(check(image));
  EXPECT_TRUE(world().diagnostics().ends_with("Truncated file (actual 0 expect 1)\n"));
}

TEST_F(TrxImages, WithTheFlagAHeaderAloneMakesOnePassAndIsCompared) {
  Bytes image = trx_image(28, 1);
  EXPECT_TRUE(check(image));
  image[8] ^= 1;
  EXPECT_FALSE(check(image));
  EXPECT_TRUE(world().diagnostics().ends_with("Bad CRC\n"));
}

TEST_F(TrxImages, OnlyBit0OfTheFlagsIsTheFlag) {
  Bytes image = trx_image(1024, 0xFFFFFFFE);
  EXPECT_TRUE(check(image));
  image[8] ^= 1;
  EXPECT_FALSE(check(image));
}

} // namespace
