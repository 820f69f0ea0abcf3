#include "hdbbackint/stream/save_pipeline.h"

#include <string_view>
#include <vector>

#include "hdbbackint/stream/block_encoder.h"
#include "hdbbackint/stream/method_choice.h"

namespace hdbbackint {

namespace {

/// How many blocks of a stream COMPR_AUTO looks at.
constexpr std::size_t sample_blocks = 4;
static_assert(sample_blocks < slots_per_stream);

}  // namespace

Save_Pipeline::Save_Pipeline(Object_Source& source, Open_Sink open_sink, Options options, Worker_Pool& workers,
                             Stop_Source& stop)
    : source_(source), open_sink_(std::move(open_sink)), options_(options), workers_(workers), stop_(stop) {}

Save_Pipeline::~Save_Pipeline() {
  // Ends what still runs when run was left by an exception; a finished stream has its result already.
  give_up("abandoned");
  if (writer_.joinable()) writer_.join();
  std::unique_lock<std::mutex> guard(mutex_);
  changed_.wait(guard, [this] { return compressing_ == 0; });
}

bool Save_Pipeline::run(Saved_Stream& result) {
  const Stop_Source::Listener wake(stop_, [this] { give_up("stopped"); });
  const bool read = read_all();
  // On a failure HANA notices at once, however long the pool takes to answer.
  if (!read) source_.close();
  if (writer_.joinable()) writer_.join();
  if (failed()) return false;
  result = {method_, raw_bytes_, stored_bytes_, checksum_.text()};
  return true;
}

bool Save_Pipeline::read_all() {
  if (!read_sample()) return false;
  for (std::uint64_t number = blocks_; !read_whole_; ++number) {
    Slot* slot = wait_free(number);
    bool at_end = false;
    if (slot == nullptr || !read_block(*slot, at_end)) return false;
    if (slot->raw_size > 0) hand_on(*slot);
    if (at_end) {
      const std::lock_guard<std::mutex> guard(mutex_);
      read_whole_ = true;
      changed_.notify_all();
    }
  }
  return true;
}

/// The first blocks, before anything is written: with COMPR_AUTO they choose the method.
bool Save_Pipeline::read_sample() {
  const std::size_t wanted = options_.method == COMPR_AUTO ? sample_blocks : 1;
  std::vector<std::string_view> sample;
  bool at_end = false;
  for (std::size_t i = 0; i < wanted && !at_end; ++i) {
    if (!read_block(slots_[i], at_end)) return false;
    if (slots_[i].raw_size > 0) sample.emplace_back(slots_[i].raw.data(), slots_[i].raw_size);
  }
  method_ = options_.method == COMPR_AUTO ? choose_method(sample, options_.level) : options_.method;
  if (!start_writing()) return false;
  for (std::size_t i = 0; i < sample.size(); ++i) hand_on(slots_[i]);
  const std::lock_guard<std::mutex> guard(mutex_);
  read_whole_ = at_end;
  changed_.notify_all();
  return true;
}

bool Save_Pipeline::read_block(Slot& slot, bool& at_end) {
  const ssize_t got = source_.fill(slot.raw.reserve(block_bytes), block_bytes);
  if (got < 0) {
    fail(source_.error());
    return false;
  }
  slot.raw_size = static_cast<std::size_t>(got);
  at_end = slot.raw_size < block_bytes;
  checksum_.add(slot.raw.data(), slot.raw_size);
  raw_bytes_ += slot.raw_size;
  if (slot.raw_size == 0 || options_.source_throttle == nullptr || options_.source_throttle->take(slot.raw_size)) {
    return true;
  }
  fail("stopped");
  return false;
}

bool Save_Pipeline::start_writing() {
  std::string error;
  sink_ = open_sink_(method_, error);
  if (!sink_) {
    fail(error);
    return false;
  }
  writer_ = std::thread([this] { write_all(); });
  return true;
}

void Save_Pipeline::hand_on(Slot& slot) {
  const bool as_it_is = method_ == COMPR_NONE;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    ++blocks_;
    slot.state = as_it_is ? State::ready : State::taken;
    if (!as_it_is) ++compressing_;
    changed_.notify_all();
  }
  if (as_it_is) return;
  workers_.submit([this, &slot](Block_Encoder& encoder) {
    std::string error;
    const bool ok = encoder.encode(method_, options_.level, slot.raw.data(), slot.raw_size, slot.compressed,
                                   slot.compressed_size, error);
    if (!ok) fail(error);
    const std::lock_guard<std::mutex> done(mutex_);
    slot.state = State::ready;
    --compressing_;
    changed_.notify_all();
  });
}

Save_Pipeline::Slot* Save_Pipeline::wait_free(std::uint64_t number) {
  Slot& slot = slots_[number % slots_per_stream];
  std::unique_lock<std::mutex> guard(mutex_);
  changed_.wait(guard, [&] { return failed_ || slot.state == State::free; });
  return failed_ ? nullptr : &slot;
}

void Save_Pipeline::write_all() {
  const std::string_view header = stored_header(method_);
  bool ok = write_bytes(header.data(), header.size());
  for (std::uint64_t number = 0; ok; ++number) {
    Slot& slot = slots_[number % slots_per_stream];
    {
      std::unique_lock<std::mutex> guard(mutex_);
      changed_.wait(guard, [&] { return failed_ || number < blocks_ || read_whole_; });
      if (!failed_ && number == blocks_) {
        guard.unlock();
        const std::string_view trailer = stored_trailer(method_, number > 0);
        write_bytes(trailer.data(), trailer.size());
        return;
      }
      changed_.wait(guard, [&] { return failed_ || slot.state == State::ready; });
      if (failed_) return;
    }
    ok = write_block(slot);
    const std::lock_guard<std::mutex> guard(mutex_);
    slot.state = State::free;
    changed_.notify_all();
  }
}

bool Save_Pipeline::write_block(const Slot& slot) {
  return method_ == COMPR_NONE ? write_bytes(slot.raw.data(), slot.raw_size)
                               : write_bytes(slot.compressed.data(), slot.compressed_size);
}

bool Save_Pipeline::write_bytes(const char* data, std::size_t size) {
  if (size == 0) return true;
  if (options_.destination_throttle != nullptr && !options_.destination_throttle->take(size)) {
    fail("stopped");
    return false;
  }
  if (!sink_->write(data, size)) {
    fail(sink_->error());
    return false;
  }
  stored_bytes_ += size;
  return true;
}

void Save_Pipeline::fail(const std::string& why) {
  give_up(why);
  stop_.request();
}

/// The first reason is kept: later ones follow from it.
void Save_Pipeline::give_up(const std::string& why) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (!failed_) error_ = why;
  failed_ = true;
  changed_.notify_all();
}

bool Save_Pipeline::failed() {
  const std::lock_guard<std::mutex> guard(mutex_);
  return failed_;
}

}  // namespace hdbbackint
