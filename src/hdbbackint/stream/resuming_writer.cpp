#include "hdbbackint/stream/resuming_writer.h"

#include "platform/log.h"

namespace hdbbackint {

Resuming_Writer::Resuming_Writer(Pool_Target target, Stop_Source& stop)
    : target_(std::move(target)), stop_(stop), window_(target_.options.max_seconds_retry, stop) {}

bool Resuming_Writer::write(const char* data, std::size_t size) {
  const bool first = total_bytes_ == 0;
  keep(data, size);
  // Nothing has been sent yet: connecting may be tried again whatever the buffer holds.
  while (first && !open()) {
    if (!transient_ || !window_.wait()) return false;
  }
  total_bytes_ += size;
  if (write_once(data, size) || recover()) {
    window_.reset();
    return true;
  }
  return false;
}

bool Resuming_Writer::commit() {
  while (total_bytes_ == 0 && !writer_ && !open()) {
    if (!transient_ || !window_.wait()) return false;
  }
  while (!commit_once()) {
    if (!recover()) return false;
  }
  return true;
}

/// Keeps a copy of what is written until it no longer fits.
void Resuming_Writer::keep(const char* data, std::size_t size) {
  if (!start_is_kept_) return;
  if (kept_bytes_ + size > target_.resumption_buffer_size) {
    start_is_kept_ = false;
    kept_.clear();
    kept_bytes_ = 0;
    return;
  }
  kept_.emplace_back(data, size);
  kept_bytes_ += size;
}

bool Resuming_Writer::open() {
  writer_.reset();
  pool_ = std::make_unique<Client_IO_Ex>(target_.options);
  if (pool_->connect(target_.url)) writer_ = pool_->create(target_.path);
  if (writer_) return true;
  error_ = pool_->error();
  transient_ = pool_->transient();
  return false;
}

bool Resuming_Writer::write_once(const char* data, std::size_t size) {
  if (writer_->write(data, size)) return true;
  error_ = writer_->error();
  transient_ = writer_->transient();
  writer_.reset();
  return false;
}

bool Resuming_Writer::replay() {
  if (!open()) return false;
  for (const std::string& part : kept_) {
    if (!write_once(part.data(), part.size())) return false;
  }
  return true;
}

/// Begins the object again. False when the failure is final, the time is up or the start of the object is not held.
bool Resuming_Writer::recover() {
  while (transient_) {
    if (!start_is_kept_) {
      error_ += "; it cannot be resumed, as the start of the stream is no longer in the resumption buffer of " +
                std::to_string(target_.resumption_buffer_size) + " bytes";
      return false;
    }
    D3_WARNING("Transfer of %C is tried again: %C\n", target_.path.c_str(), platform::cut_for_log(error_).c_str());
    if (!window_.wait()) {
      error_ += stop_.requested() ? "; stopped"
                                  : "; gave up after " + std::to_string(target_.options.max_seconds_retry) + " seconds";
      return false;
    }
    if (replay()) return true;
  }
  return false;
}

bool Resuming_Writer::commit_once() {
  if (writer_->commit()) {
    writer_.reset();
    return true;
  }
  error_ = writer_->error();
  transient_ = writer_->transient();
  writer_.reset();
  return transient_ && was_committed();
}

/// The pool may have stored the object although its answer was lost. Its name is this object's alone.
bool Resuming_Writer::was_committed() {
  Client_IO_Ex pool(target_.options);
  if (!pool.connect(target_.url)) return false;
  const std::unique_ptr<Pool_Reader> reader = pool.open(target_.path);
  return reader && reader->size() == total_bytes_;
}

}  // namespace hdbbackint
