#include "dorsal3/terminal/terminal.h"

#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace dorsal3 {

namespace {

constexpr std::size_t secret_limit_bytes = 4096;
constexpr std::size_t line_limit_bytes = 256;
volatile std::sig_atomic_t interruption = 0;
volatile std::sig_atomic_t termination = 0;

extern "C" void note_interruption(int) { interruption = 1; }
extern "C" void note_termination(int) { termination = 1; }

/// Echo is off for the life of this object.
class Silent_Input {
 public:
  explicit Silent_Input(bool active) : active_(active && ::tcgetattr(STDIN_FILENO, &before_) == 0) {
    if (!active_) return;
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    active_ = ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) == 0;
  }
  ~Silent_Input() {
    if (active_) (void)::tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
  }
  Silent_Input(const Silent_Input&) = delete;
  Silent_Input& operator=(const Silent_Input&) = delete;

 private:
  termios before_{};
  bool active_;
};

void write_error(const std::string& text) {
  if (::write(STDERR_FILENO, text.data(), text.size()) < 0) return;
}

}  // namespace

Terminal Terminal::detect() {
  Terminal terminal;
  terminal.output_is_terminal = ::isatty(STDOUT_FILENO) == 1;
  terminal.input_is_terminal = ::isatty(STDIN_FILENO) == 1;
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) terminal.width = size.ws_col;
  return terminal;
}

bool read_secret(const Terminal& terminal, const std::string& prompt, secure_string& secret) {
  const Silent_Input silent(terminal.input_is_terminal);
  if (terminal.input_is_terminal) write_error(prompt);
  secret.clear();
  char c = 0;
  ssize_t count = 0;
  // Byte by byte: nothing of the secret stays in a buffer, and what follows the line is not ours.
  while (secret.size() <= secret_limit_bytes) {
    count = ::read(STDIN_FILENO, &c, 1);
    if (count < 0 && errno == EINTR && !interrupted()) continue;
    if (count <= 0 || c == '\n') break;
    secret.push_back(c);
  }
  if (terminal.input_is_terminal) write_error("\n");
  platform::wipe_memory(&c, sizeof c);
  // Cut, it would be another secret than the one that was typed.
  return count >= 0 && !secret.empty() && secret.size() <= secret_limit_bytes && !interrupted();
}

bool read_line(std::string& line) {
  line.clear();
  char c = 0;
  // Byte by byte: what follows the line is not ours. What is beyond the limit is read and dropped.
  while (!interrupted()) {
    const ssize_t count = ::read(STDIN_FILENO, &c, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    if (c == '\n') return true;
    if (line.size() < line_limit_bytes) line.push_back(c);
  }
  return false;
}

void watch_interruptions() {
  // Without SA_RESTART: a read that waits for the keyboard must come back.
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = note_interruption;
  (void)::sigaction(SIGINT, &action, nullptr);
  action.sa_handler = note_termination;
  (void)::sigaction(SIGTERM, &action, nullptr);
}

bool interrupted() { return interruption != 0 || termination != 0; }

bool terminated() { return termination != 0; }

void forget_interruption() { interruption = 0; }

}  // namespace dorsal3
