// Files and the folders that they lie in.

#include "platform/common/folder.h"

#include "tests/platform/device_fixture.h"
#include "tests/platform/failing_sync.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>

namespace sync_test {

int syncs_before_failure = -1;

} // namespace sync_test

extern "C" {
int __real_fsync(int fd);
int __wrap_fsync(int fd) {
  int& left = sync_test::syncs_before_failure;
  return left < 0 || left-- > 0 ? __real_fsync(fd) : -1;
}
}

namespace {

class Folders : public device_test::Device {
protected:
  static std::string path(const std::string& name) { return folder() / name; }
  static int open_it(const std::string& name, int flags) {
    return rcmd::open_in_folder(path(name).c_str(), flags | O_CLOEXEC);
  }
  static mode_t rights(const std::string& name) {
    struct stat facts {};
    EXPECT_EQ(stat(path(name).c_str(), &facts), 0);
    return facts.st_mode & 07777;
  }
  static std::ptrdiff_t open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  }
};

TEST_F(Folders, ASuffixFitsWithItsTerminatorOrNotAtAll) {
  char text[8] = "";
  EXPECT_TRUE(rcmd::beside("/a", ".new", text, 7));
  EXPECT_STREQ(text, "/a.new");
  EXPECT_FALSE(rcmd::beside("/a", ".new", text, 6));
  EXPECT_TRUE(rcmd::beside("a", "", text, 2));
  EXPECT_FALSE(rcmd::beside("", "", text, 8)) << "no path at all";
}

TEST_F(Folders, AFileAndItsMissingFolderAreMadeWithTheirRights) {
  const mode_t before = umask(0);
  const int fd = open_it("fresh/file", O_RDWR | O_CREAT);
  EXPECT_GE(fd, 0);
  close(fd);
  const int other = open_it("fresh/other", O_RDWR | O_CREAT);
  EXPECT_GE(other, 0);
  close(other);
  umask(before);
  EXPECT_EQ(rights("fresh"), 0755U);
  EXPECT_EQ(rights("fresh/file"), 0600U);
  EXPECT_EQ(rights("fresh/other"), 0600U);
}

TEST_F(Folders, AFileThatIsOnlyReadBringsNoFolder) {
  EXPECT_EQ(open_it("missing/file", O_RDONLY), -1);
  EXPECT_FALSE(std::filesystem::exists(folder() / "missing"));
}

TEST_F(Folders, AFileThatIsThereIsOpenedOnceWhateverFailedBefore) {
  write("tmp/file", "x");
  const auto before = open_descriptors();
  errno = ENOENT;
  const int fd = open_it("tmp/file", O_RDWR | O_CREAT);
  EXPECT_EQ(open_descriptors(), before + 1);
  close(fd);
}

TEST_F(Folders, AFileMayHaveTheDescriptorZero) {
  write("tmp/file", "x");
  const int saved = fcntl(0, F_DUPFD_CLOEXEC, 100);
  close(0);
  const auto before = open_descriptors();
  errno = ENOENT;
  EXPECT_EQ(open_it("tmp/file", O_RDWR | O_CREAT), 0);
  EXPECT_EQ(open_descriptors(), before + 1);
  dup2(saved, 0);
  close(saved);
}

TEST_F(Folders, OnlyAFolderThatIsThereIsMadeLasting) {
  write("tmp/file", "x");
  EXPECT_TRUE(rcmd::sync_folder(path("tmp/file").c_str()));
  EXPECT_FALSE(rcmd::sync_folder(path("tmp/file/below").c_str()));
  EXPECT_FALSE(rcmd::sync_folder(path("missing/file").c_str()));
  EXPECT_FALSE(rcmd::sync_folder("file"));
}

TEST_F(Folders, AFoldersNameMayHaveOneCharacter) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::create_directory(folder() / "d");
  std::filesystem::current_path(folder());
  EXPECT_TRUE(rcmd::sync_folder("d/file"));
  std::filesystem::current_path(before);
}

TEST_F(Folders, AFileWithoutAFolderInItsNameHasNone) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::create_directory(folder() / "f");
  std::filesystem::current_path(folder());
  EXPECT_FALSE(rcmd::sync_folder("file"));
  EXPECT_TRUE(rcmd::sync_folder(path("tmp/file").c_str()));
  EXPECT_FALSE(rcmd::sync_folder("file")) << "not even the one asked for before";
  std::filesystem::current_path(before);
}

TEST_F(Folders, AFoldersNameOfAnyLengthIsRefused) {
  const std::string longer = "/" + std::string(3 * PATH_MAX, 'x') + "/file";
  EXPECT_FALSE(rcmd::sync_folder(longer.c_str()));
}

TEST_F(Folders, AFolderThatCannotBeWrittenDownIsNotLasting) {
  sync_test::syncs_before_failure = 0;
  EXPECT_FALSE(rcmd::sync_folder(path("tmp/file").c_str()));
  sync_test::syncs_before_failure = -1;
}

} // namespace
