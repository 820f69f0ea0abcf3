#pragma once

#include <sys/stat.h>

#include <chrono>
#include <string>

namespace histories {

/// Waits for a file to be written to. Who waits for a server to know something asks it again when its database has
/// changed, instead of every few milliseconds: most of what the server does would be to answer.
class Change_Watch {
 public:
  explicit Change_Watch(std::string path) : path_(std::move(path)) { note(); }

  /// What is written from here on is a change. To be called before the question.
  void note() { seen_ = look(); }
  /// Until a change, and never long: times of files are not as fine as two writes can be.
  void wait() const;

 private:
  struct Look {
    bool there = false;
    off_t size = 0;
    timespec written{};
  };
  [[nodiscard]] Look look() const;
  [[nodiscard]] bool changed() const;

  std::string path_;
  Look seen_;
};

/// Asks until `condition` holds; false when `limit` passed before.
template <typename Condition>
[[nodiscard]] bool eventually(Change_Watch watch, Condition condition, std::chrono::seconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  for (;;) {
    watch.note();
    if (condition()) return true;
    if (std::chrono::steady_clock::now() > end) return false;
    watch.wait();
  }
}

}  // namespace histories
