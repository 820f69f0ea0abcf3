#include "benchmarks/hdbbackint/page_cache.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/unique_descriptor.h"

namespace benchmarks {

namespace {

constexpr std::size_t buffer_bytes = 1U << 20;
/// Shares of the pages. The system may keep or drop a few for reasons of its own.
constexpr double least_of_warm = 0.99;
constexpr double most_of_cold = 0.01;

[[noreturn]] void refuse(const std::filesystem::path& file, const std::string& why) {
  throw std::runtime_error(file.string() + ": " + why);
}

double share_in_memory(int fd, const std::filesystem::path& file) {
  const std::size_t size = std::filesystem::file_size(file);
  if (size == 0) return 0;
  void* const mapped = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
  if (mapped == MAP_FAILED) refuse(file, std::strerror(errno));
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  std::vector<unsigned char> pages((size + page - 1) / page);
  const int asked = ::mincore(mapped, size, pages.data());
  ::munmap(mapped, size);
  if (asked != 0) refuse(file, std::strerror(errno));
  const auto present = std::count_if(pages.begin(), pages.end(), [](unsigned char entry) { return (entry & 1U) != 0; });
  return static_cast<double>(present) / static_cast<double>(pages.size());
}

}  // namespace

std::optional<Cache_State> cache_state_of(std::string_view name) {
  if (name == "warm") return Cache_State::warm;
  if (name == "cold") return Cache_State::cold;
  return std::nullopt;
}

void put_into_state(const std::filesystem::path& file, Cache_State state) {
  const platform::Unique_Descriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!descriptor.valid()) refuse(file, std::strerror(errno));
  if (state == Cache_State::warm) {
    std::vector<char> ignored(buffer_bytes);
    while (::read(descriptor.get(), ignored.data(), ignored.size()) > 0) {
    }
    if (share_in_memory(descriptor.get(), file) < least_of_warm) {
      refuse(file, "it does not stay in memory; measure with fewer MiB");
    }
    return;
  }
  // Only what the disk has can be dropped.
  ::fdatasync(descriptor.get());
  ::posix_fadvise(descriptor.get(), 0, 0, POSIX_FADV_DONTNEED);
  if (share_in_memory(descriptor.get(), file) > most_of_cold) {
    refuse(file, "the page cache does not let it go; measure on another file system, or warm");
  }
}

}  // namespace benchmarks
