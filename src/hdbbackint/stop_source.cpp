#include "hdbbackint/stop_source.h"

#include <sys/eventfd.h>

namespace hdbbackint {

Stop_Source::Stop_Source(Stop_Source* parent) : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (parent != nullptr) on_parent_ = std::make_unique<Listener>(*parent, [this] { request(); });
}

Stop_Source::~Stop_Source() { on_parent_.reset(); }

void Stop_Source::request() {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (requested_.exchange(true)) return;
  const std::uint64_t one = 1;
  // An eventfd that is not read takes its first value always.
  [[maybe_unused]] const ssize_t written = ::write(descriptor_.get(), &one, sizeof one);
  event_.set();
  for (const std::function<void()>& listener : listeners_) listener();
}

bool Stop_Source::wait(std::chrono::nanoseconds span) { return !platform::Clock::current().wait_for(event_, span); }

Stop_Source::Listener::Listener(Stop_Source& source, std::function<void()> on_stop) : source_(source) {
  const std::lock_guard<std::mutex> guard(source_.mutex_);
  if (source_.requested_) on_stop();
  at_ = source_.listeners_.insert(source_.listeners_.end(), std::move(on_stop));
}

Stop_Source::Listener::~Listener() {
  const std::lock_guard<std::mutex> guard(source_.mutex_);
  source_.listeners_.erase(at_);
}

}  // namespace hdbbackint
