// Measures hdbbackint beside dd, zstd and, where it is installed, restic: the same bytes from a pipe to the same disk,
// synced, taking turns.
// hdbbackint_throughput [MiB per run] [folder on the disk to measure]

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

#include "net/http_server.h"
#include "support/memory_backupd.h"
#include "unit/hdbbackint/installed_agent.h"

namespace {

namespace fs = std::filesystem;
using hdbbackint::Child;

constexpr const char* job_uuid = "0f0e0d0c-0b0a-4908-8706-050403020100";
constexpr std::size_t mib = 1U << 20;
constexpr int rounds = 5;
constexpr std::size_t pattern_mib = 64;

/// Pages of a database: half of each repeats, half does not.
std::string database_like_pattern() {
  std::mt19937_64 random(3);
  std::string pattern(pattern_mib * mib, '\0');
  for (std::size_t at = 0; at < pattern.size(); at += 8) {
    const std::uint64_t value = at % 64 < 32 ? random() : at / 4096 % 97;
    std::copy_n(reinterpret_cast<const char*>(&value), 8, pattern.begin() + static_cast<long>(at));
  }
  return pattern;
}

class Bench {
 public:
  Bench(std::size_t size_mib, const fs::path& disk) : size_mib_(size_mib), root_(disk / "hdbbackint_throughput.d") {
    fs::remove_all(root_);
    fs::create_directories(root_ / "pool");
    fs::create_directories(root_ / "tmp");
    fs::create_directories(root_ / "etc/opt/tarvex/dorsal3");
    fs::create_directories(root_ / "var/opt/tarvex/dorsal3/agent");
    std::string error;
    if (!listener_.start(error)) {
      std::fprintf(stderr, "cannot listen: %s\n", error.c_str());
      std::exit(1);
    }
    std::ofstream(root_ / "etc/opt/tarvex/dorsal3/agent.toml")
        << "server_url = \"http://127.0.0.1:" << listener_.port()
        << "\"\nhost_uuid = \"99999999-0b0a-4908-8706-050403020100\"\n";
    const fs::path key = root_ / "var/opt/tarvex/dorsal3/agent/access_key";
    std::ofstream(key) << "the-key\n";
    fs::permissions(key, fs::perms::owner_read | fs::perms::owner_write);
    program_ = hdbbackint::install_agent(root_.string(), HDBBACKINT_PROGRAM);
  }
  ~Bench() { fs::remove_all(root_); }

  void compare(const char* what, const std::function<double()>& theirs, const std::function<double()>& ours) {
    std::vector<double> ratios;
    std::vector<double> their_speeds;
    std::vector<double> our_speeds;
    for (int round = 0; round < rounds; ++round) {
      const double their_seconds = theirs();
      const double our_seconds = ours();
      ratios.push_back(their_seconds / our_seconds);
      their_speeds.push_back(static_cast<double>(size_mib_) / their_seconds);
      our_speeds.push_back(static_cast<double>(size_mib_) / our_seconds);
    }
    std::printf("%-28s %7.0f MiB/s, hdbbackint %7.0f MiB/s, ratio %.2f (median of %d, %.2f to %.2f)\n", what,
                median(their_speeds), median(our_speeds), median(ratios), rounds,
                *std::min_element(ratios.begin(), ratios.end()), *std::max_element(ratios.begin(), ratios.end()));
  }

  /// "PIPE" and "TARGET" in the command stand for the paths.
  double tool(std::vector<std::string> command) {
    const std::string pipe = make_pipe("tool");
    const std::string target = (root_ / "pool/tool.out").string();
    for (std::string& part : command) {
      replace_all(part, "PIPE", pipe);
      replace_all(part, "TARGET", target);
    }
    return timed(command, {pipe}, pattern_);
  }

  /// Into a repository of its own, so that it finds none of the bytes there already.
  double restic() {
    const std::string repository =
        "RESTIC_PASSWORD=benchmark restic --quiet --no-cache --repo " + (root_ / "pool/restic").string();
    Child prepare({"/bin/sh", "-c", repository + " init"}, (root_ / "tmp/err").string());
    if (prepare.wait() != 0) std::fprintf(stderr, "restic cannot make its repository\n");
    return tool({"/bin/sh", "-c",
                 repository + " --compression off backup --stdin < PIPE && sync -f " + (root_ / "pool").string()});
  }

  double agent(const char* compression, std::size_t streams, const std::string& pattern) {
    server_.add_job({{"uuid", job_uuid},
                     {"host_uuid", "99999999-0b0a-4908-8706-050403020100"},
                     {"location", "file:///pool"},
                     {"database", "TN1"},
                     {"compression", compression},
                     {"compression_level", 1},
                     {"sid", "HDB"},
                     {"landscape_id", "77777777-0b0a-4908-8706-050403020100"}});
    std::ofstream input(root_ / "tmp/in");
    input << "#TOOLOPTION \"job_uuid=" << job_uuid << ";\"\n";
    std::vector<std::string> pipes;
    for (std::size_t i = 0; i < streams; ++i) {
      pipes.push_back(make_pipe("pipe" + std::to_string(i)));
      input << "#PIPE /tmp/pipe" << i << "\n";
    }
    input.close();
    return timed({program_, "-f", "backup", "-u", "TN1@HDB", "-i", "/tmp/in", "-o", "/tmp/out"}, pipes, pattern);
  }

  [[nodiscard]] const std::string& pattern() const { return pattern_; }
  [[nodiscard]] long resident_kib() const { return resident_kib_; }

 private:
  static double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
  }
  static void replace_all(std::string& text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
      text.replace(at, from.size(), to);
    }
  }

  std::string make_pipe(const std::string& name) {
    const std::string path = (root_ / "tmp" / name).string();
    ::unlink(path.c_str());
    if (::mkfifo(path.c_str(), 0600) != 0) std::perror(path.c_str());
    return path;
  }

  void feed(const std::string& pipe, const std::string& pattern, const Child& child) {
    const int fd = ::open(pipe.c_str(), O_WRONLY | O_CLOEXEC);
    for (std::size_t sent = 0; sent < size_mib_ * mib;) {
      const std::size_t at = sent % pattern.size();
      const std::size_t count = std::min({mib, pattern.size() - at, size_mib_ * mib - sent});
      const ssize_t written = ::write(fd, pattern.data() + at, count);
      if (written <= 0) break;
      sent += static_cast<std::size_t>(written);
    }
    const long resident = child.resident_so_far_kib();
    for (long known = resident_kib_; known < resident && !resident_kib_.compare_exchange_weak(known, resident);) {
    }
    ::close(fd);
  }

  double timed(const std::vector<std::string>& command, const std::vector<std::string>& pipes,
               const std::string& pattern) {
    ::sync();
    resident_kib_ = 0;
    const auto start = std::chrono::steady_clock::now();
    Child child(command, (root_ / "tmp/err").string());
    std::vector<std::thread> writers;
    for (const std::string& pipe : pipes) writers.emplace_back([&, pipe] { feed(pipe, pattern, child); });
    for (std::thread& writer : writers) writer.join();
    const int code = child.wait();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (code != 0) std::fprintf(stderr, "%s ended with %d\n", command[0].c_str(), code);
    for (const fs::directory_entry& entry : fs::directory_iterator(root_ / "pool")) fs::remove_all(entry.path());
    return seconds;
  }

  std::size_t size_mib_;
  fs::path root_;
  std::string program_;
  std::string pattern_ = database_like_pattern();
  support::Memory_Backupd server_{"the-key"};
  net::Http_Server listener_{server_, {}};
  std::atomic<long> resident_kib_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  ::signal(SIGPIPE, SIG_IGN);
  const std::size_t size_mib = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 2048;
  const fs::path disk = argc > 2 ? argv[2] : fs::current_path();
  Bench bench(size_mib, disk);
  std::printf("%zu MiB a run, %u processors, pool below %s\n", size_mib, std::thread::hardware_concurrency(),
              disk.c_str());
  const auto none = [&] { return bench.agent("none", 1, bench.pattern()); };
  const auto zstd = [&] { return bench.agent("zstd", 1, bench.pattern()); };
  bench.compare(
      "dd bs=1M conv=fdatasync",
      [&] {
        return bench.tool({"/bin/dd", "if=PIPE", "of=TARGET", "bs=1M", "conv=fdatasync", "status=none"});
      },
      none);
  for (const char* threads : {"-T1", "-T2"}) {
    const std::string command = std::string("zstd -1 ") + threads + " -q -f -o TARGET < PIPE && sync TARGET";
    bench.compare((std::string("zstd -1 ") + threads + " and sync").c_str(),
                  [&] {
                    return bench.tool({"/bin/sh", "-c", command});
                  },
                  zstd);
  }
  if (fs::exists("/usr/bin/restic")) {
    bench.compare(
        "restic backup --stdin, synced", [&] { return bench.restic(); }, none);
  }
  const std::string zeros(mib, '\0');
  for (const std::size_t streams : {1U, 8U, 32U}) {
    (void)bench.agent("zstd", streams, zeros);
    std::printf("memory, %2zu streams of zeros: %ld KiB resident at most (bound %zu KiB)\n", streams,
                bench.resident_kib(), (32 + 8 * streams) * 1024);
  }
  return 0;
}
