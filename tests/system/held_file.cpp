#include "held_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <utility>

#include "installed_product.h"
#include "processes.h"

namespace system_tests {

namespace fs = std::filesystem;

namespace {
constexpr mode_t everybody_reads = 0644;
}

Held_File::Held_File(std::string path) : path_(std::move(path)), content_(slurp(path_)) {
  // One that was held and killed reads no more.
  (void)::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(::mkfifo((path_ + ".held").c_str(), everybody_reads), 0) << path_;
  fs::rename(path_ + ".held", path_);
}

bool Held_File::holds(pid_t reader) {
  return eventually([&] {
    // Refused while nobody waits at the other end.
    if (way_in_ < 0) way_in_ = ::open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    return way_in_ >= 0 && is_open_in(reader);
  });
}

bool Held_File::is_open_in(pid_t process) const {
  std::error_code error;
  for (fs::directory_iterator entry("/proc/" + std::to_string(process) + "/fd", error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code closed;
    if (fs::read_symlink(entry->path(), closed) == path_) return true;
  }
  return false;
}

void Held_File::release() {
  if (std::exchange(released_, true)) return;
  std::ofstream(path_ + ".next") << content_;
  fs::rename(path_ + ".next", path_);
  if (way_in_ < 0) return;
  // Fits into the pipe; nobody reads it when the reader was killed.
  const bool given = ::write(way_in_, content_.data(), content_.size()) >= 0 || errno == EPIPE;
  EXPECT_TRUE(given) << path_;
  ::close(way_in_);
}

}  // namespace system_tests
