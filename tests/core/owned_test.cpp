#include "core/owned.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <type_traits>

using namespace rcmd;

namespace {

int open_something() {
  return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool is_open(int fd) {
  return fcntl(fd, F_GETFD) >= 0;
}

TEST(Ownership, ADescriptorIsClosedAtTheEndOfItsScope) {
  const int fd = open_something();
  {
    const UniqueFd owner(fd);
    EXPECT_EQ(owner.get(), fd);
    EXPECT_TRUE(is_open(fd));
  }
  EXPECT_FALSE(is_open(fd));
}

TEST(Ownership, AnotherDescriptorTakesThePlaceOfTheOneThatIsClosed) {
  const int first = open_something();
  const int second = open_something();
  UniqueFd owner(first);
  owner.reset(second);
  EXPECT_FALSE(is_open(first));
  EXPECT_TRUE(is_open(second));
  EXPECT_EQ(owner.get(), second);
  owner.reset();
  EXPECT_FALSE(is_open(second));
  EXPECT_FALSE(owner);
}

TEST(Ownership, DescriptorZeroIsOneAndMinusOneIsNone) {
  close(0);
  ASSERT_EQ(open_something(), 0);
  {
    UniqueFd owner;
    EXPECT_FALSE(owner);
    EXPECT_EQ(owner.get(), -1);
    owner.reset(0);
    EXPECT_TRUE(owner);
  }
  EXPECT_FALSE(is_open(0));
  ASSERT_EQ(open_something(), 0); // standard input's place stays taken
}

TEST(Ownership, ATextIsFreedAtTheEndOfItsScope) {
  const auto in_use = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  const std::size_t before = in_use();
  {
    const OwnedText owner(static_cast<char*>(std::malloc(4 << 20)));
    EXPECT_NE(owner.get(), nullptr);
  }
  EXPECT_LT(in_use(), before + (1 << 20));
}

TEST(Ownership, ATextThatIsGivenUpIsNobodysAnyMore) {
  char* text = strdup("kept");
  {
    OwnedText owner(text);
    EXPECT_EQ(owner.get(), text);
    EXPECT_EQ(owner.release(), text);
    EXPECT_EQ(owner.get(), nullptr);
  }
  EXPECT_STREQ(text, "kept");
  std::free(text);
}

TEST(Ownership, NothingThatIsOwnedCanBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<OwnedText> || std::is_copy_assignable_v<OwnedText>);
  EXPECT_FALSE(std::is_copy_constructible_v<UniqueFd> || std::is_copy_assignable_v<UniqueFd>);
}

} // namespace
