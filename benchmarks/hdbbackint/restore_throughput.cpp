// Measures hdbbackint's restore beside cat and zstd: the same stored objects into named pipes that this program reads,
// taking turns, in the same state of the page cache. The objects were stored by hdbbackint before.
// hdbbackint_restore_throughput [MiB per run, of all streams together] [folder on the disk to measure] [warm|cold]

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "benchmarks/hdbbackint/backint_site.h"
#include "benchmarks/hdbbackint/page_cache.h"
#include "platform/unique_descriptor.h"
#include "unit/hdbbackint/installed_agent.h"

namespace {

namespace fs = std::filesystem;
using benchmarks::Backint_Site;
using benchmarks::Cache_State;
using benchmarks::mib;
using benchmarks::Spread;
using benchmarks::spread_of;
using hdbbackint::Child;
using Clock = std::chrono::steady_clock;
using Command = std::vector<std::string>;

constexpr std::size_t default_mib = 512;
constexpr std::size_t most_streams = 8;
/// A comparison ends at the first pair after this time, but not before it has its least number of pairs.
constexpr std::chrono::seconds time_of_comparison{12};
constexpr std::size_t least_pairs = 3;
constexpr std::size_t most_pairs = 9;

struct Stored {
  std::string ebid;
  std::string pipe_name;
  fs::path file;
};

struct Cost {
  double seconds = 0;
  double processor_seconds = 0;  // of the programs, not of the one that reads their pipes
};

double seconds_of(const timeval& time) {
  return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

/// Of all children that have been waited for.
double processor_seconds_of_children() {
  rusage usage{};
  ::getrusage(RUSAGE_CHILDREN, &usage);
  return seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime);
}

double seconds_since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

std::string text_of(const fs::path& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::string value_of(const json_spirit::Object& record, const char* key) {
  std::string text;
  json_spirit::object_get(record, key, text);
  return text;
}

/// HANA's side: reads a pipe to its end. With `expected` it looks at every byte, which is not for a timed run.
class Pipe_Reader {
 public:
  Pipe_Reader(std::string pipe, const std::string* expected) : pipe_(std::move(pipe)), expected_(expected) {}

  void run() {
    const platform::Unique_Descriptor pipe(::open(pipe_.c_str(), O_RDONLY | O_CLOEXEC));
    std::vector<char> buffer(mib);
    for (ssize_t got = 0; (got = ::read(pipe.get(), buffer.data(), buffer.size())) > 0;) {
      if (expected_ != nullptr) compare(buffer.data(), static_cast<std::size_t>(got));
      bytes_ += static_cast<std::size_t>(got);
    }
    ended_ = true;
  }
  /// Lets a reader go whose writer will not come.
  void release() const {
    while (!ended_) {
      const platform::Unique_Descriptor writer(::open(pipe_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
      std::this_thread::yield();
    }
  }
  /// After the end.
  [[nodiscard]] std::size_t bytes() const { return bytes_; }
  [[nodiscard]] bool right() const { return right_; }

 private:
  void compare(const char* data, std::size_t size) {
    for (std::size_t done = 0; done < size;) {
      const std::size_t at = (bytes_ + done) % expected_->size();
      const std::size_t count = std::min(size - done, expected_->size() - at);
      if (std::memcmp(data + done, expected_->data() + at, count) != 0) right_ = false;
      done += count;
    }
  }

  std::string pipe_;
  const std::string* expected_;
  std::size_t bytes_ = 0;
  bool right_ = true;
  std::atomic<bool> ended_ = false;
};

class Bench {
 public:
  Bench(std::size_t size_mib, const fs::path& disk, Cache_State state)
      : size_mib_(size_mib), state_(state), site_(disk, "hdbbackint_restore_throughput.d", HDBBACKINT_PROGRAM) {}

  /// `tool` is the command that writes one OBJECT to its standard output.
  void compare(const char* name, const char* compression, const std::string& tool, std::size_t streams) {
    store(compression, streams);
    const auto theirs = [&](const std::string* expected) { return timed(commands_of(tool), expected); };
    const auto ours = [&](const std::string* expected) { return timed({restore_command()}, expected); };
    // Not measured: what both sides write is what was saved.
    (void)theirs(&pattern_);
    (void)ours(&pattern_);
    std::vector<Cost> their_costs;
    std::vector<Cost> our_costs;
    const auto start = Clock::now();
    while (our_costs.size() < least_pairs ||
           (our_costs.size() < most_pairs && Clock::now() - start < time_of_comparison)) {
      // Each is first in every other pair.
      const bool ours_first = our_costs.size() % 2 == 1;
      if (ours_first) our_costs.push_back(ours(nullptr));
      their_costs.push_back(theirs(nullptr));
      if (!ours_first) our_costs.push_back(ours(nullptr));
    }
    report(name, streams, their_costs, our_costs);
    site_.empty_pool();
  }

 private:
  void report(const char* name, std::size_t streams, const std::vector<Cost>& theirs, const std::vector<Cost>& ours) {
    std::vector<double> ratios;
    std::vector<double> their_speeds;
    std::vector<double> our_speeds;
    std::vector<double> their_processor;
    std::vector<double> our_processor;
    for (std::size_t i = 0; i < ours.size(); ++i) {
      ratios.push_back(theirs[i].seconds / ours[i].seconds);
      their_speeds.push_back(static_cast<double>(size_mib_) / theirs[i].seconds);
      our_speeds.push_back(static_cast<double>(size_mib_) / ours[i].seconds);
      their_processor.push_back(theirs[i].processor_seconds);
      our_processor.push_back(ours[i].processor_seconds);
    }
    const Spread ratio = spread_of(ratios);
    std::printf(
        "%-8s %zu stream%s %6.0f MiB/s, hdbbackint %6.0f MiB/s, ratio %.2f (median of %zu, %.2f to %.2f); "
        "processor %.2f s, hdbbackint %.2f s\n",
        name, streams, streams == 1 ? ", " : "s,", spread_of(their_speeds).median, spread_of(our_speeds).median,
        ratio.median, ours.size(), ratio.smallest, ratio.largest, spread_of(their_processor).median,
        spread_of(our_processor).median);
    std::fflush(stdout);
  }

  [[nodiscard]] std::size_t bytes_of_stream() const { return size_mib_ * mib / streams_; }

  void store(const char* compression, std::size_t streams) {
    streams_ = streams;
    objects_.clear();
    site_.use_compression(compression);
    std::string request = Backint_Site::tool_option();
    std::vector<std::string> pipes;
    for (std::size_t i = 0; i < streams; ++i) {
      const std::string name = "pipe" + std::to_string(i);
      pipes.push_back(site_.make_pipe(name));
      request += "#PIPE /tmp/" + name + "\n";
    }
    Child backup(site_.command("backup", request), site_.error_file());
    std::vector<std::thread> writers;
    for (const std::string& pipe : pipes) {
      writers.emplace_back([&, pipe] { benchmarks::feed_pipe(pipe, pattern_, bytes_of_stream()); });
    }
    for (std::thread& writer : writers) writer.join();
    if (backup.wait() != 0) throw std::runtime_error("the backup failed: " + text_of(site_.error_file()));
    const std::vector<json_spirit::Object> records = site_.records().files();
    for (std::size_t i = records.size() - streams; i < records.size(); ++i) {
      objects_.push_back({value_of(records[i], "extern_backup_id"), value_of(records[i], "filename"),
                          site_.pool() / value_of(records[i], "storage_path")});
    }
  }

  /// One process for each object, as there is one for each pipe.
  [[nodiscard]] std::vector<Command> commands_of(const std::string& tool) const {
    std::vector<Command> commands;
    for (const Stored& object : objects_) {
      commands.push_back({"/bin/sh", "-c", "exec " + tool + " \"$0\" > \"$1\"", object.file.string(),
                          site_.make_pipe(object.pipe_name)});
    }
    return commands;
  }

  [[nodiscard]] Command restore_command() const {
    std::string request;
    for (const Stored& object : objects_) {
      (void)site_.make_pipe(object.pipe_name);
      request += "#EBID \"" + object.ebid + "\" /tmp/" + object.pipe_name + "\n";
    }
    return site_.command("restore", request);
  }

  Cost timed(const std::vector<Command>& commands, const std::string* expected) {
    for (const Stored& object : objects_) benchmarks::put_into_state(object.file, state_);
    std::vector<std::unique_ptr<Pipe_Reader>> readers;
    for (const Stored& object : objects_) {
      readers.push_back(std::make_unique<Pipe_Reader>(site_.pipe(object.pipe_name), expected));
    }
    const double processor_before = processor_seconds_of_children();
    const auto start = Clock::now();
    std::vector<std::thread> threads;
    for (const auto& reader : readers) threads.emplace_back([&reader] { reader->run(); });
    std::vector<Child> children;
    for (const Command& command : commands) {
      children.emplace_back(command, site_.error_file() + std::to_string(children.size()));
    }
    std::string failure;
    for (std::size_t i = 0; i < children.size(); ++i) {
      const int code = children[i].wait();
      if (code == 0) continue;
      failure = commands[i][0] + " ended with " + std::to_string(code) + ": " +
                text_of(site_.error_file() + std::to_string(i));
    }
    for (const auto& reader : readers) {
      if (!failure.empty()) reader->release();
    }
    for (std::thread& thread : threads) thread.join();
    const Cost cost{seconds_since(start), processor_seconds_of_children() - processor_before};
    if (!failure.empty()) throw std::runtime_error(failure);
    for (const auto& reader : readers) {
      if (!reader->right() || reader->bytes() != bytes_of_stream()) {
        throw std::runtime_error(commands[0][0] + " wrote other bytes than were saved");
      }
    }
    return cost;
  }

  std::size_t size_mib_;
  Cache_State state_;
  std::size_t streams_ = 1;
  Backint_Site site_;
  std::string pattern_ = benchmarks::database_like_pattern();
  std::vector<Stored> objects_;
};

void print_load() {
  double loads[1] = {0};
  if (::getloadavg(loads, 1) == 1) std::printf("load average %.1f\n", loads[0]);
}

}  // namespace

int main(int argc, char** argv) {
  ::signal(SIGPIPE, SIG_IGN);
  const std::size_t size_mib = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : default_mib;
  const fs::path disk = fs::absolute(argc > 2 ? argv[2] : ".");
  const char* const state_name = argc > 3 ? argv[3] : "warm";
  const std::optional<Cache_State> state = benchmarks::cache_state_of(state_name);
  if (size_mib < most_streams || size_mib % most_streams != 0 || !state) {
    std::fprintf(stderr, "usage: %s [MiB, a multiple of %zu] [folder] [warm|cold]\n", argv[0], most_streams);
    return EXIT_FAILURE;
  }
  try {
    Bench bench(size_mib, disk, *state);
    std::printf("%zu MiB a run, %u processors, pool below %s, page cache %s before each run\n", size_mib,
                std::thread::hardware_concurrency(), disk.c_str(), state_name);
    print_load();
    for (const std::size_t streams : {std::size_t{1}, most_streams}) {
      bench.compare("cat", "none", "/bin/cat", streams);
      bench.compare("zstd -d", "zstd", "/usr/bin/zstd -d -q -c", streams);
    }
    print_load();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
