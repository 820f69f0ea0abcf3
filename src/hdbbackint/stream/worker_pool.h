#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "hdbbackint/stream/block_encoder.h"

namespace hdbbackint {

/// The threads that compress, shared by all streams. Tasks run in the order in which they were given and must not
/// wait for one another. Any thread may submit. Threads start with the first task; the destructor runs what is left.
class Worker_Pool {
 public:
  using Task = std::function<void(Block_Encoder& encoder)>;

  explicit Worker_Pool(unsigned threads);
  ~Worker_Pool();
  Worker_Pool(const Worker_Pool&) = delete;
  Worker_Pool& operator=(const Worker_Pool&) = delete;

  void submit(Task task);
  /// As many as there are processors, within the bound of the program.
  [[nodiscard]] static unsigned fitting_threads();

 private:
  void work();

  const unsigned wanted_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Task> tasks_;            ///< guarded by mutex_
  std::vector<std::thread> threads_;  ///< guarded by mutex_ until the destructor
  bool ending_ = false;               ///< guarded by mutex_
};

}  // namespace hdbbackint
