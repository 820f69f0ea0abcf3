#include "agent/backupd_client/byte_handover.h"

#include <algorithm>
#include <cstring>

Byte_Handover::Byte_Handover(std::size_t capacity_bytes) : ring_(capacity_bytes) {}

bool Byte_Handover::push(const void* data, std::size_t size) {
  const char* at = static_cast<const char*>(data);
  std::unique_lock<std::mutex> guard(mutex_);
  while (size > 0) {
    changed_.wait(guard, [this] { return !reading_ || filled_ < ring_.size(); });
    if (!reading_) return false;
    const std::size_t free_at = (first_ + filled_) % ring_.size();
    const std::size_t until_wrap = free_at < first_ ? first_ - free_at : ring_.size() - free_at;
    const std::size_t count = std::min({size, until_wrap, ring_.size() - filled_});
    std::memcpy(ring_.data() + free_at, at, count);
    filled_ += count;
    at += count;
    size -= count;
    changed_.notify_all();
  }
  return reading_;
}

void Byte_Handover::finish(bool whole) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (end_ == End::open) end_ = whole ? End::whole : End::cut;
  changed_.notify_all();
}

ssize_t Byte_Handover::pop(void* data, std::size_t size) {
  std::unique_lock<std::mutex> guard(mutex_);
  changed_.wait(guard, [this] { return filled_ > 0 || end_ != End::open; });
  if (end_ == End::cut) return -1;
  if (filled_ == 0) return 0;
  const std::size_t count = std::min({size, filled_, ring_.size() - first_});
  std::memcpy(data, ring_.data() + first_, count);
  first_ = (first_ + count) % ring_.size();
  filled_ -= count;
  changed_.notify_all();
  return static_cast<ssize_t>(count);
}

void Byte_Handover::close_reading() {
  const std::lock_guard<std::mutex> guard(mutex_);
  reading_ = false;
  changed_.notify_all();
}
