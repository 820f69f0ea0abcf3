#include "hdbbackint/stream/worker_pool.h"

#include <algorithm>

#include "hdbbackint/stream/stream_limits.h"

namespace hdbbackint {

Worker_Pool::Worker_Pool(unsigned threads) : wanted_(std::max(threads, 1U)) {}

Worker_Pool::~Worker_Pool() {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

unsigned Worker_Pool::fitting_threads() {
  return std::clamp(std::thread::hardware_concurrency(), 1U, most_compressing_threads);
}

void Worker_Pool::submit(Task task) {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    while (threads_.size() < wanted_) threads_.emplace_back([this] { work(); });
    tasks_.push_back(std::move(task));
  }
  changed_.notify_one();
}

void Worker_Pool::work() {
  Block_Encoder encoder;
  std::unique_lock<std::mutex> guard(mutex_);
  for (;;) {
    changed_.wait(guard, [this] { return ending_ || !tasks_.empty(); });
    if (tasks_.empty()) return;
    const Task task = std::move(tasks_.front());
    tasks_.pop_front();
    guard.unlock();
    task(encoder);
    guard.lock();
  }
}

}  // namespace hdbbackint
