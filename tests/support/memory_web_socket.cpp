#include "support/memory_web_socket.h"

#include <array>
#include <condition_variable>
#include <deque>
#include <mutex>

namespace support {
namespace {

/// What both ends share; the mailbox of an end holds what was sent to it.
struct Line {
  std::mutex mutex;
  std::condition_variable changed;
  std::array<std::deque<std::string>, 2> mailboxes;
  std::array<bool, 2> closed_by{};
};

class Memory_Web_Socket final : public net::Web_Socket {
 public:
  Memory_Web_Socket(std::shared_ptr<Line> line, std::size_t side) : line_(std::move(line)), side_(side) {}
  ~Memory_Web_Socket() override { close(); }

  bool send(const std::string& text, net::Net_Error& error) override {
    const std::lock_guard lock(line_->mutex);
    if (line_->closed_by[0] || line_->closed_by[1]) return report(error);
    line_->mailboxes[1 - side_].push_back(text);
    line_->changed.notify_all();
    return true;
  }

  bool receive(std::string& text, net::Net_Error& error) override {
    std::unique_lock lock(line_->mutex);
    auto& mailbox = line_->mailboxes[side_];
    line_->changed.wait(lock, [&] { return !mailbox.empty() || line_->closed_by[0] || line_->closed_by[1]; });
    if (mailbox.empty() || line_->closed_by[side_]) return report(error);
    text = std::move(mailbox.front());
    mailbox.pop_front();
    return true;
  }

  void close() override {
    const std::lock_guard lock(line_->mutex);
    line_->closed_by[side_] = true;
    line_->changed.notify_all();
  }

 private:
  std::shared_ptr<Line> line_;
  std::size_t side_;

  static bool report(net::Net_Error& error) {
    error.kind = net::Net_Error::closed;
    error.text = "the connection was closed";
    return false;
  }
};

}  // namespace

std::pair<std::unique_ptr<net::Web_Socket>, std::unique_ptr<net::Web_Socket>> make_web_socket_pair() {
  auto line = std::make_shared<Line>();
  return {std::make_unique<Memory_Web_Socket>(line, 0), std::make_unique<Memory_Web_Socket>(line, 1)};
}

}  // namespace support
