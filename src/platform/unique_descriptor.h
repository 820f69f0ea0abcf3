#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform {

/// Owns one file descriptor; closes it without touching errno. -1 owns nothing. Not shared between threads.
class Unique_Descriptor {
 public:
  Unique_Descriptor() = default;
  explicit Unique_Descriptor(int fd) noexcept : fd_(fd) {}
  Unique_Descriptor(Unique_Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Unique_Descriptor& operator=(Unique_Descriptor&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  ~Unique_Descriptor() { reset(); }

  [[nodiscard]] int get() const noexcept { return fd_; }
  [[nodiscard]] bool valid() const noexcept { return fd_ >= 0; }
  void reset(int fd = -1) noexcept {
    const int saved = errno;
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
    errno = saved;
  }

 private:
  int fd_ = -1;
};

}  // namespace platform
