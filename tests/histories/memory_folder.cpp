#include "histories/memory_folder.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace histories {

namespace {
constexpr const char* folder_variable = "TMPDIR";
constexpr const char* memory = "/dev/shm";
/// Of a system and its programs, for some tests at once.
constexpr std::uintmax_t room_bytes = std::uintmax_t{3} << 30;
}  // namespace

void keep_temporary_folders_in_memory() {
  std::error_code none;
  const std::filesystem::space_info space = std::filesystem::space(memory, none);
  if (!none && space.available >= room_bytes && ::access(memory, W_OK) == 0) (void)::setenv(folder_variable, memory, 0);
}

}  // namespace histories
