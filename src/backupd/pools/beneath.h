#pragma once

#include <string>
#include <vector>

#include "platform/unique_descriptor.h"

namespace backupd {

/// True for a name that stands for one entry of a directory and nothing else.
[[nodiscard]] bool is_entry_name(const std::string& name);

enum class Missing { fail, make };

/// Opens the directory `path` (decoded segments) below `root` (a documented path) without following a symbolic link
/// below it. Missing ones are made, durably, when asked for. Not valid with errno on failure.
[[nodiscard]] platform::Unique_Descriptor open_beneath(const std::string& root, const std::vector<std::string>& path,
                                                       Missing missing);

struct Entry {
  std::string name;
  bool directory = false;
  std::uint64_t size = 0;
};

/// Regular files and directories in an open directory, by name. False and errno on failure.
[[nodiscard]] bool list_entries(const platform::Unique_Descriptor& directory, std::vector<Entry>& entries);

}  // namespace backupd
