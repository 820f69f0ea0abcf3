#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

/// Overwrites `size` bytes in a way the optimiser cannot drop.
void wipe_memory(void* data, std::size_t size) noexcept;

}  // namespace platform

/// A secret: not copied into plain strings, not streamable, wiped when released or replaced. The bytes live in memory
/// of their own (never inside the object), so that moving one leaves nothing behind.
class secure_string {
 public:
  secure_string() = default;
  explicit secure_string(std::string_view text);
  secure_string(const char* text, std::size_t size);
  secure_string(const secure_string& other);
  secure_string(secure_string&& other) noexcept;
  secure_string& operator=(const secure_string& other);
  secure_string& operator=(secure_string&& other) noexcept;
  ~secure_string();

  void assign(const char* text, std::size_t size);
  void append(std::string_view text);
  void push_back(char c) { append(std::string_view(&c, 1)); }
  void clear() noexcept;

  [[nodiscard]] const char* data() const noexcept { return data_ == nullptr ? "" : data_; }
  /// Ended by a null byte.
  [[nodiscard]] const char* c_str() const noexcept { return data(); }
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
  /// For handing the bytes to a consumer that keeps no copy.
  [[nodiscard]] std::string_view view() const noexcept { return {data(), size_}; }
  /// Does not tell by its duration where two secrets differ.
  [[nodiscard]] bool operator==(const secure_string& other) const noexcept;

 private:
  char* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};
