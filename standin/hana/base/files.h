#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace standin {

/// A descriptor that is closed with its owner.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor() { reset(); }
  [[nodiscard]] int get() const { return fd_; }
  [[nodiscard]] bool valid() const { return fd_ >= 0; }
  int release();
  void reset();

 private:
  int fd_ = -1;
};

std::optional<std::string> read_file(const std::string& path);
/// Writes beside and renames: readers see the old text or the new one.
bool write_file(const std::string& path, std::string_view text, unsigned mode = 0640);
/// One write with O_APPEND.
bool append_file(const std::string& path, std::string_view text);
bool make_directories(const std::string& path);
bool write_all(int fd, const void* data, std::size_t size);

}  // namespace standin
