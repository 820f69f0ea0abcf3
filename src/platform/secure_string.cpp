#include "platform/secure_string.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace platform {

void wipe_memory(void* data, std::size_t size) noexcept {
  if (data != nullptr && size != 0) explicit_bzero(data, size);
}

}  // namespace platform

secure_string::secure_string(std::string_view text) { append(text); }
secure_string::secure_string(const char* text, std::size_t size) { assign(text, size); }
secure_string::secure_string(const secure_string& other) { append(other.view()); }
secure_string::secure_string(secure_string&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

secure_string& secure_string::operator=(const secure_string& other) {
  if (this != &other) {
    secure_string copy(other);
    *this = std::move(copy);
  }
  return *this;
}

secure_string& secure_string::operator=(secure_string&& other) noexcept {
  if (this != &other) {
    clear();
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }
  return *this;
}

secure_string::~secure_string() { clear(); }

void secure_string::assign(const char* text, std::size_t size) {
  secure_string fresh;
  if (text != nullptr) fresh.append(std::string_view(text, size));
  *this = std::move(fresh);
}

void secure_string::append(std::string_view text) {
  if (text.empty()) return;
  const std::size_t wanted = size_ + text.size() + 1;
  if (wanted > capacity_) {
    const std::size_t capacity = std::max<std::size_t>({wanted, capacity_ * 2, 32});
    auto* fresh = static_cast<char*>(std::malloc(capacity));
    if (fresh == nullptr) throw std::bad_alloc();
    if (size_ != 0) std::memcpy(fresh, data_, size_);
    platform::wipe_memory(data_, capacity_);
    std::free(data_);
    data_ = fresh;
    capacity_ = capacity;
  }
  std::memcpy(data_ + size_, text.data(), text.size());
  size_ += text.size();
  data_[size_] = '\0';
}

void secure_string::clear() noexcept {
  platform::wipe_memory(data_, capacity_);
  std::free(data_);
  data_ = nullptr;
  size_ = 0;
  capacity_ = 0;
}

bool secure_string::operator==(const secure_string& other) const noexcept {
  if (size_ != other.size_) return false;
  unsigned char difference = 0;
  for (std::size_t i = 0; i < size_; ++i)
    difference = static_cast<unsigned char>(difference | (data_[i] ^ other.data_[i]));
  return difference == 0;
}
