#include "benchmarks/hdbbackint/backint_site.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>

#include "unit/hdbbackint/installed_agent.h"

namespace benchmarks {

namespace {

namespace fs = std::filesystem;

constexpr const char* job_uuid = "0f0e0d0c-0b0a-4908-8706-050403020100";
constexpr const char* host_uuid = "99999999-0b0a-4908-8706-050403020100";
constexpr std::size_t pattern_bytes = 64 * mib;
constexpr std::size_t page_bytes = 4096;
constexpr std::size_t group_bytes = 64;

}  // namespace

Spread spread_of(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t upper = values.size() / 2;
  const std::size_t lower = (values.size() - 1) / 2;
  return {(values[lower] + values[upper]) / 2, values.front(), values.back()};
}

std::string database_like_pattern() {
  constexpr std::uint64_t distinct_pages = 97;
  std::mt19937_64 random(3);
  std::string pattern(pattern_bytes, '\0');
  for (std::size_t at = 0; at < pattern.size(); at += sizeof(std::uint64_t)) {
    const std::uint64_t value = at % group_bytes < group_bytes / 2 ? random() : at / page_bytes % distinct_pages;
    std::copy_n(reinterpret_cast<const char*>(&value), sizeof value, pattern.begin() + static_cast<long>(at));
  }
  return pattern;
}

void feed_pipe(const std::string& pipe, const std::string& pattern, std::size_t bytes,
               const std::function<void()>& before_end) {
  const int fd = ::open(pipe.c_str(), O_WRONLY | O_CLOEXEC);
  for (std::size_t sent = 0; sent < bytes;) {
    const std::size_t at = sent % pattern.size();
    const std::size_t count = std::min({mib, pattern.size() - at, bytes - sent});
    const ssize_t written = ::write(fd, pattern.data() + at, count);
    if (written <= 0) break;
    sent += static_cast<std::size_t>(written);
  }
  if (before_end) before_end();
  ::close(fd);
}

Backint_Site::Backint_Site(const fs::path& disk, const std::string& name, const std::string& program_file)
    : root_(disk / name) {
  fs::remove_all(root_);
  for (const char* folder : {"pool", "tmp", "etc/opt/tarvex/dorsal3", "var/opt/tarvex/dorsal3/agent"}) {
    fs::create_directories(root_ / folder);
  }
  std::string error;
  if (!listener_.start(error)) {
    std::fprintf(stderr, "cannot listen: %s\n", error.c_str());
    std::exit(EXIT_FAILURE);
  }
  std::ofstream(root_ / "etc/opt/tarvex/dorsal3/agent.toml")
      << "server_url = \"http://127.0.0.1:" << listener_.port() << "\"\nhost_uuid = \"" << host_uuid << "\"\n";
  const fs::path key = root_ / "var/opt/tarvex/dorsal3/agent/access_key";
  std::ofstream(key) << "the-key\n";
  fs::permissions(key, fs::perms::owner_read | fs::perms::owner_write);
  program_ = hdbbackint::install_agent(root_.string(), program_file);
}

Backint_Site::~Backint_Site() {
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

void Backint_Site::use_compression(const char* method) {
  server_.add_job({{"uuid", job_uuid},
                   {"host_uuid", host_uuid},
                   {"location", "file:///pool"},
                   {"database", "TN1"},
                   {"compression", method},
                   {"compression_level", 1},
                   {"sid", "HDB"},
                   {"landscape_id", "77777777-0b0a-4908-8706-050403020100"}});
}

std::string Backint_Site::make_pipe(const std::string& name) const {
  const std::string path = pipe(name);
  ::unlink(path.c_str());
  if (::mkfifo(path.c_str(), S_IRUSR | S_IWUSR) != 0) std::perror(path.c_str());
  return path;
}

std::vector<std::string> Backint_Site::command(const std::string& function, const std::string& request) const {
  std::ofstream(root_ / "tmp/in") << request;
  return {program_, "-f", function, "-u", "TN1@HDB", "-i", "/tmp/in", "-o", "/tmp/out"};
}

std::string Backint_Site::tool_option() { return std::string("#TOOLOPTION \"job_uuid=") + job_uuid + ";\"\n"; }

void Backint_Site::empty_pool() const {
  for (const fs::directory_entry& entry : fs::directory_iterator(pool())) fs::remove_all(entry.path());
}

}  // namespace benchmarks
