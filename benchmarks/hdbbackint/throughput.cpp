// Measures hdbbackint beside dd, zstd and, where it is installed, restic: the same bytes from a pipe to the same disk,
// synced, taking turns.
// hdbbackint_throughput [MiB per run] [folder on the disk to measure]

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <thread>

#include "benchmarks/hdbbackint/backint_site.h"
#include "unit/hdbbackint/installed_agent.h"

namespace {

namespace fs = std::filesystem;
using benchmarks::mib;
using benchmarks::Spread;
using benchmarks::spread_of;
using hdbbackint::Child;

constexpr int rounds = 5;

class Bench {
 public:
  Bench(std::size_t size_mib, const fs::path& disk)
      : size_mib_(size_mib), site_(disk, "hdbbackint_throughput.d", HDBBACKINT_PROGRAM) {}

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
    const Spread ratio = spread_of(ratios);
    std::printf("%-28s %7.0f MiB/s, hdbbackint %7.0f MiB/s, ratio %.2f (median of %d, %.2f to %.2f)\n", what,
                spread_of(their_speeds).median, spread_of(our_speeds).median, ratio.median, rounds, ratio.smallest,
                ratio.largest);
  }

  /// "PIPE" and "TARGET" in the command stand for the paths.
  double tool(std::vector<std::string> command) {
    const std::string pipe = site_.make_pipe("tool");
    const std::string target = (site_.pool() / "tool.out").string();
    for (std::string& part : command) {
      replace_all(part, "PIPE", pipe);
      replace_all(part, "TARGET", target);
    }
    return timed(command, {pipe}, pattern_);
  }

  /// Into a repository of its own, so that it finds none of the bytes there already.
  double restic() {
    const std::string repository =
        "RESTIC_PASSWORD=benchmark restic --quiet --no-cache --repo " + (site_.pool() / "restic").string();
    Child prepare({"/bin/sh", "-c", repository + " init"}, site_.error_file());
    if (prepare.wait() != 0) std::fprintf(stderr, "restic cannot make its repository\n");
    return tool(
        {"/bin/sh", "-c", repository + " --compression off backup --stdin < PIPE && sync -f " + site_.pool().string()});
  }

  double agent(const char* compression, std::size_t streams, const std::string& pattern) {
    site_.use_compression(compression);
    std::string request = benchmarks::Backint_Site::tool_option();
    std::vector<std::string> pipes;
    for (std::size_t i = 0; i < streams; ++i) {
      const std::string name = "pipe" + std::to_string(i);
      pipes.push_back(site_.make_pipe(name));
      request += "#PIPE /tmp/" + name + "\n";
    }
    return timed(site_.command("backup", request), pipes, pattern);
  }

  [[nodiscard]] const std::string& pattern() const { return pattern_; }
  [[nodiscard]] long resident_kib() const { return resident_kib_; }

 private:
  static void replace_all(std::string& text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
      text.replace(at, from.size(), to);
    }
  }

  void note_resident(const Child& child) {
    const long resident = child.resident_so_far_kib();
    for (long known = resident_kib_; known < resident && !resident_kib_.compare_exchange_weak(known, resident);) {
    }
  }

  double timed(const std::vector<std::string>& command, const std::vector<std::string>& pipes,
               const std::string& pattern) {
    ::sync();
    resident_kib_ = 0;
    const auto start = std::chrono::steady_clock::now();
    Child child(command, site_.error_file());
    std::vector<std::thread> writers;
    for (const std::string& pipe : pipes) {
      writers.emplace_back(
          [&, pipe] { benchmarks::feed_pipe(pipe, pattern, size_mib_ * mib, [&] { note_resident(child); }); });
    }
    for (std::thread& writer : writers) writer.join();
    const int code = child.wait();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (code != 0) std::fprintf(stderr, "%s ended with %d\n", command[0].c_str(), code);
    site_.empty_pool();
    return seconds;
  }

  std::size_t size_mib_;
  benchmarks::Backint_Site site_;
  std::string pattern_ = benchmarks::database_like_pattern();
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
