#include "hdbbackint/stream/restore_pipeline.h"

#include <thread>

#include "hdbbackint/stream/checksum.h"

namespace hdbbackint {

Restore_Pipeline::Restore_Pipeline(Byte_Input& input, Byte_Sink& output, Expected expected, Stop_Source& stop)
    : input_(input), output_(output), expected_(std::move(expected)), stop_(stop) {}

bool Restore_Pipeline::run() {
  const Stop_Source::Listener wake(stop_, [this] { fail("stopped"); });
  std::thread reader([this] { read_all(); });
  const bool written = write_all();
  if (!written) stop_.request();
  reader.join();
  return written;
}

void Restore_Pipeline::read_all() {
  bool at_end = false;
  while (!at_end) {
    std::uint64_t number = 0;
    {
      std::unique_lock<std::mutex> guard(mutex_);
      changed_.wait(guard, [this] { return failed_ || filled_ - emptied_ < slot_count; });
      if (failed_) return;
      number = filled_;
    }
    Slot& slot = slots_[number % slot_count];
    if (!fill(slot, at_end)) {
      fail(input_.error());
      // The writer may wait for a slow reader; the pipe is to be closed now.
      stop_.request();
      return;
    }
    const std::lock_guard<std::mutex> guard(mutex_);
    if (slot.size > 0) ++filled_;
    read_whole_ = at_end;
    changed_.notify_all();
  }
}

bool Restore_Pipeline::fill(Slot& slot, bool& at_end) {
  char* data = slot.data.reserve(block_bytes);
  slot.size = 0;
  while (slot.size < block_bytes) {
    const ssize_t got = input_.read(data + slot.size, block_bytes - slot.size);
    if (got < 0) return false;
    if (got == 0) {
      at_end = true;
      break;
    }
    slot.size += static_cast<std::size_t>(got);
  }
  return true;
}

bool Restore_Pipeline::write_all() {
  Checksum checksum;
  std::uint64_t bytes = 0;
  for (std::uint64_t number = 0;; ++number) {
    bool last = false;
    if (!wait_filled(number, last)) return false;
    Slot& slot = slots_[number % slot_count];
    const std::size_t size = last && number == filled_ ? 0 : slot.size;
    checksum.add(slot.data.data(), size);
    bytes += size;
    if (last && !check(bytes, checksum.text())) return false;
    if (!output_.write(slot.data.data(), size)) {
      fail(output_.error());
      return false;
    }
    if (last) return true;
    const std::lock_guard<std::mutex> guard(mutex_);
    ++emptied_;
    changed_.notify_all();
  }
}

/// Waits until block `number` is there and it is known whether it is the last.
bool Restore_Pipeline::wait_filled(std::uint64_t number, bool& last) {
  std::unique_lock<std::mutex> guard(mutex_);
  changed_.wait(guard, [&] { return failed_ || filled_ > number + 1 || read_whole_; });
  last = read_whole_ && filled_ <= number + 1;
  return !failed_;
}

bool Restore_Pipeline::check(std::uint64_t bytes, const std::string& checksum) {
  if (bytes != expected_.bytes) {
    fail("the stored object is damaged: it has " + std::to_string(bytes) + " bytes, " +
         std::to_string(expected_.bytes) + " were saved");
    return false;
  }
  if (!expected_.checksum.empty() && checksum != expected_.checksum) {
    fail("the stored object is damaged: its checksum is " + checksum + ", " + expected_.checksum + " was saved");
    return false;
  }
  return true;
}

void Restore_Pipeline::fail(const std::string& why) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (!failed_) error_ = why;
  failed_ = true;
  changed_.notify_all();
}

}  // namespace hdbbackint
