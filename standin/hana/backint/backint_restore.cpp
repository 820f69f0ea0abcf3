#include "backint/backint_restore.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <thread>

#include "backint/backint_process.h"
#include "backint/sha256.h"
#include "base/clock.h"
#include "base/text.h"

namespace standin {

namespace {

constexpr std::size_t block_bytes = 1 << 20;
constexpr int poll_ms = 50;
constexpr mode_t pipe_mode = 0660;

std::string input_text(const Layout& layout, const std::vector<Backint_Wish>& wishes) {
  std::string text = software_line(layout);
  for (const Backint_Wish& wish : wishes)
    text += (wish.external_id.empty() ? "#NULL " : "#EBID " + backint_quoted(wish.external_id) + " ") +
            backint_quoted(wish.name) + "\n";
  return text;
}

/// HANA makes folders of its own system only; another system's must be there.
bool make_pipe(const Layout& layout, const std::string& name) {
  const std::string path = layout.real(name);
  if (name.starts_with(layout.global_directory() + "/") &&
      !make_directories(std::filesystem::path(path).parent_path().string()))
    return false;
  ::unlink(path.c_str());
  return ::mkfifo(path.c_str(), pipe_mode) == 0;
}

/// One pipe while hdbbackint runs.
class Pipe_Reader {
 public:
  Pipe_Reader(const Backint_Reader& call, Backint_Process& process, std::atomic<std::uint64_t>& total)
      : call_(call), process_(process), total_(total), block_(block_bytes) {}

  void read(Descriptor pipe, Backint_Wish& wish, const std::function<bool(const char*, std::size_t)>& taker) {
    Sha256 sum;
    std::int64_t idle_ms = 0;
    while (!call_.canceled()) {
      const bool last_look = process_.ended();
      pollfd entry{pipe.get(), POLLIN, 0};
      const int ready = ::poll(&entry, 1, poll_ms);
      if (ready < 0 && errno != EINTR) break;
      if (ready <= 0) {
        // Who ended without a word never opened the pipe.
        if (last_look) break;
        idle_ms += poll_ms;
        if (call_.response_timeout_seconds > 0 && idle_ms > call_.response_timeout_seconds * 1000)
          process_.send(SIGKILL);
        continue;
      }
      idle_ms = 0;
      if (!take(pipe.get(), wish, sum, taker)) break;
    }
    wish.sha256 = sum.finish();
  }

 private:
  /// What is there now; false at the stream's end.
  bool take(int fd, Backint_Wish& wish, Sha256& sum, const std::function<bool(const char*, std::size_t)>& taker) {
    const std::size_t wanted =
        call_.bytes_per_second > 0
            ? std::clamp<std::size_t>(static_cast<std::size_t>(call_.bytes_per_second / 10), 1, block_bytes)
            : block_bytes;
    const ssize_t got = ::read(fd, block_.data(), wanted);
    if (got < 0) return errno == EAGAIN || errno == EINTR;
    if (got == 0) {
      wish.ended = true;
      return false;
    }
    const auto size = static_cast<std::size_t>(got);
    sum.add(block_.data(), size);
    wish.bytes += size;
    total_ += size;
    if (call_.kill_after_bytes >= 0 && total_ >= static_cast<std::uint64_t>(call_.kill_after_bytes))
      process_.send(SIGKILL);
    if (!taker(block_.data(), size)) return false;
    if (call_.bytes_per_second > 0) sleep_ms(static_cast<std::int64_t>(size) * 1000 / call_.bytes_per_second);
    return true;
  }

  const Backint_Reader& call_;
  Backint_Process& process_;
  std::atomic<std::uint64_t>& total_;
  std::vector<char> block_;
};

bool names(const std::vector<std::string>& words, const Backint_Wish& wish) {
  return std::find(words.begin() + 1, words.end(), wish.name) != words.end();
}

/// `good`: the answer's word for an object that is there.
std::string read_answers(const std::string& output, const char* good, std::vector<Backint_Wish>& wishes) {
  for (Backint_Wish& wish : wishes) {
    for (const std::string& line : split(output, '\n')) {
      const auto words = backint_words(line);
      if (words.size() < 2 || !names(words, wish)) continue;
      // An inquiry by name tells of every version, the newest one first.
      const bool same_id = wish.external_id.empty() || words[1] == wish.external_id;
      if (words[0] == good && words.size() >= 3 && words[2] == wish.name && same_id && wish.found_id.empty()) {
        wish.outcome = Backint_Wish::found;
        wish.found_id = words[1];
      }
      if (words[0] == "#NOTFOUND" && (words[1] == wish.name || same_id)) wish.outcome = Backint_Wish::not_found;
      if (words[0] == "#ERROR") wish.outcome = Backint_Wish::failed;
    }
    if (wish.outcome == Backint_Wish::failed) return "[110506] Backint reported an error for '" + wish.name + "'";
    if (wish.outcome == Backint_Wish::no_answer)
      return "[110512] Backint reported '" + wish.name + "' was not found in output";
  }
  return {};
}

/// Files of one call, removed with it.
class Exchange {
 public:
  explicit Exchange(const Layout& layout) : layout_(layout), in(exchange_file(layout)), out(exchange_file(layout)) {}
  ~Exchange() {
    for (const std::string& name : pipes) ::unlink(layout_.real(name).c_str());
    if (!in.empty()) ::unlink(layout_.real(in).c_str());
    if (!out.empty()) ::unlink(layout_.real(out).c_str());
  }

 private:
  const Layout& layout_;

 public:
  const std::string in, out;
  std::vector<std::string> pipes;
};

/// Runs the program; `serve` works while it runs.
std::string run(const Backint_Reader& call, const char* function, const char* good, std::vector<Backint_Wish>& wishes,
                Exchange& exchange, const std::function<void(Backint_Process&)>& serve) {
  const std::string program = backint_program(call.layout);
  if (::access(program.c_str(), X_OK) != 0) return cannot_execute(call.layout, errno);
  const std::string input = input_text(call.layout, wishes);
  if (exchange.in.empty() || exchange.out.empty() || !append_file(call.layout.real(exchange.in), input))
    return "[110091] the files for backint cannot be written";
  std::vector<std::string> arguments{call.layout.backint_link(), "-f", function};
  if (!call.parameter_file.empty()) arguments.insert(arguments.end(), {"-p", call.parameter_file});
  arguments.insert(arguments.end(), {"-i", exchange.in, "-o", exchange.out, "-u", call.user_id});
  Backint_Process process;
  if (!process.start(program, arguments)) return cannot_execute(call.layout, process.error());
  log_backint_start(call.layout, call.database, join(arguments, " "), process.pid(), input);
  serve(process);
  wait_for_backint(process, call.response_timeout_seconds, call.canceled, true);
  const int code = process.finish();
  const std::string output = read_file(call.layout.real(exchange.out)).value_or(std::string());
  std::string error = read_answers(output, good, wishes);
  if (code != 0) error = exit_error(process, code);
  if (call.canceled()) error = "The recovery was canceled";
  log_backint_end(call.layout, call.database, process.pid(), code, output, error);
  return error;
}

}  // namespace

std::string run_backint_restore(const Backint_Reader& call, std::vector<Backint_Wish>& wishes,
                                const Block_Taker& taker) {
  Exchange exchange(call.layout);
  std::vector<Descriptor> pipes;
  for (const Backint_Wish& wish : wishes) {
    if (!make_pipe(call.layout, wish.name)) return "[110091] Invalid path selection for recovery: " + wish.name;
    exchange.pipes.push_back(wish.name);
    pipes.emplace_back(::open(call.layout.real(wish.name).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  }
  std::atomic<std::uint64_t> total{0};
  std::vector<char> refused(wishes.size(), 0);
  std::string error = run(call, "restore", "#RESTORED", wishes, exchange, [&](Backint_Process& process) {
    std::vector<std::thread> readers;
    for (std::size_t i = 0; i < wishes.size(); ++i)
      readers.emplace_back([&, i] {
        Pipe_Reader(call, process, total).read(std::move(pipes[i]), wishes[i], [&](const char* data, std::size_t size) {
          if (!taker(i, data, size)) refused[i] = 1;
          return refused[i] == 0;
        });
      });
    for (std::thread& reader : readers) reader.join();
  });
  // What HANA found wrong itself comes first: hdbbackint then only tells of a closed pipe.
  for (std::size_t i = 0; i < wishes.size(); ++i)
    if (refused[i] != 0 && !call.canceled())
      return "[110602] the data of '" + wishes[i].name + "' are not those of the backup";
  for (const Backint_Wish& wish : wishes)
    if (error.empty() && wish.outcome == Backint_Wish::found && !wish.ended)
      error = "[110204] Not all data could be read: " + wish.name;
  return error;
}

std::string run_backint_inquire(const Backint_Reader& call, std::vector<Backint_Wish>& wishes) {
  Exchange exchange(call.layout);
  return run(call, "inquire", "#BACKUP", wishes, exchange, [](Backint_Process&) {});
}

}  // namespace standin
