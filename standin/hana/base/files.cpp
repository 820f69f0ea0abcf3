#include "base/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <utility>

namespace standin {

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    reset();
    fd_ = other.release();
  }
  return *this;
}

int Descriptor::release() { return std::exchange(fd_, -1); }

void Descriptor::reset() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

std::optional<std::string> read_file(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.valid()) return std::nullopt;
  std::string text;
  char buffer[65536];
  for (;;) {
    const ssize_t got = ::read(file.get(), buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) return text;
    text.append(buffer, static_cast<std::size_t>(got));
  }
}

bool write_all(int fd, const void* data, std::size_t size) {
  const char* at = static_cast<const char*>(data);
  while (size != 0) {
    const ssize_t done = ::write(fd, at, size);
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return false;
    at += done;
    size -= static_cast<std::size_t>(done);
  }
  return true;
}

bool write_file(const std::string& path, std::string_view text, unsigned mode) {
  const std::string beside = path + ".new." + std::to_string(::getpid());
  {
    const Descriptor file(::open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    if (!file.valid() || !write_all(file.get(), text.data(), text.size())) return false;
    if (::fchmod(file.get(), mode) != 0) return false;
  }
  return std::rename(beside.c_str(), path.c_str()) == 0;
}

bool append_file(const std::string& path, std::string_view text) {
  const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640));
  return file.valid() && write_all(file.get(), text.data(), text.size());
}

bool make_directories(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  return std::filesystem::is_directory(path, error);
}

}  // namespace standin
