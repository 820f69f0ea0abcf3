#include "hdbbackint/parallel_objects.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace hdbbackint {

void serve_in_order(std::size_t count, std::size_t parallel, const std::function<void(std::size_t index)>& serve) {
  std::atomic<std::size_t> next{0};
  const auto take = [&] {
    for (std::size_t index = next++; index < count; index = next++) serve(index);
  };
  std::vector<std::thread> threads;
  for (std::size_t i = 1; i < std::min(count, parallel); ++i) threads.emplace_back(take);
  take();
  for (std::thread& thread : threads) thread.join();
}

}  // namespace hdbbackint
