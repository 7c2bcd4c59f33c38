#include "server/image_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

namespace server {

namespace {

class Descriptor {
public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) {
      close(fd_);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int get() const { return fd_; }

private:
  int fd_;
};

[[noreturn]] void fail(const std::string& path, const std::string& why) {
  throw ImageError(path + ": " + why);
}

class MappedImage final : public Image {
public:
  MappedImage(const std::string& path, int file, std::size_t size) : size_(size) {
    const Descriptor copy(memfd_create("rcm-image", MFD_CLOEXEC));
    std::size_t copied = 0;
    while (copied < size) {
      const ssize_t moved = sendfile(copy.get(), file, nullptr, size - copied);
      if (moved <= 0) {
        fail(path, moved == 0 ? "became shorter while it was read" : std::strerror(errno));
      }
      copied += static_cast<std::size_t>(moved);
    }
    data_ = mmap(nullptr, size, PROT_READ, MAP_SHARED, copy.get(), 0);
    if (data_ == MAP_FAILED) {
      fail(path, std::strerror(errno));
    }
    set_bytes({static_cast<const std::uint8_t*>(data_), size});
  }
  ~MappedImage() override { munmap(data_, size_); }

private:
  void* data_ = nullptr;
  std::size_t size_;
};

} // namespace

std::shared_ptr<const Image> ImageFiles::load(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (file.get() < 0 || fstat(file.get(), &status) != 0) {
    fail(path, std::strerror(errno));
  }
  if (!S_ISREG(status.st_mode)) {
    fail(path, "is not a plain file");
  }
  if (status.st_size == 0) {
    fail(path, "is empty: a device would wait for its first fragment for ever");
  }
  constexpr auto most = static_cast<std::int64_t>(kMostFragments * kFragmentBytes);
  if (status.st_size > most) {
    fail(path, "has " + std::to_string(status.st_size) + " bytes; at most " + std::to_string(most) +
                   " can be transferred");
  }
  const Key key{status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                status.st_mtim.tv_nsec};
  std::erase_if(loaded_, [](const auto& entry) { return entry.second.expired(); });
  if (auto image = loaded_[key].lock()) {
    return image;
  }
  auto image =
      std::make_shared<MappedImage>(path, file.get(), static_cast<std::size_t>(status.st_size));
  loaded_[key] = image;
  return image;
}

} // namespace server
