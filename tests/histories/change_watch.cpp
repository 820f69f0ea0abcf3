#include "histories/change_watch.h"

#include <thread>

namespace histories {

namespace {
constexpr std::chrono::milliseconds between_looks{2};
constexpr std::chrono::milliseconds longest{100};
}  // namespace

Change_Watch::Look Change_Watch::look() const {
  struct stat status {};
  if (::stat(path_.c_str(), &status) != 0) return {};
  return {true, status.st_size, status.st_mtim};
}

bool Change_Watch::changed() const {
  const Look now = look();
  return now.there != seen_.there || now.size != seen_.size || now.written.tv_sec != seen_.written.tv_sec ||
         now.written.tv_nsec != seen_.written.tv_nsec;
}

void Change_Watch::wait() const {
  const auto end = std::chrono::steady_clock::now() + longest;
  while (!changed() && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(between_looks);
}

}  // namespace histories
