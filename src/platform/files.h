#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// File operations over the file root: every path is a documented one. All are safe from any thread and leave errno as
// the failing system call set it. Nothing here logs: the caller knows what the file was for.

namespace platform {

constexpr mode_t mode_private_file = 0600;
constexpr mode_t mode_sap_file = 0640;
constexpr mode_t mode_directory = 0755;
constexpr std::size_t path_buffer_bytes = 4096;

/// True for a regular file, or a link to one.
[[nodiscard]] bool is_regular_file(const char* path);
[[nodiscard]] bool is_directory(const char* path);
/// True for a symbolic link, whatever it points to. errno is 0 when the path exists and is something else.
[[nodiscard]] bool is_symbolic_link(const char* path);

/// The text of a link with the root taken off, without a terminator; at most `size` bytes. -1 and errno on failure.
[[nodiscard]] ssize_t read_link(const char* path, char* buffer, std::size_t size);
/// Makes `path` a link to `target`. 0, or -1 and errno.
[[nodiscard]] int make_link(const char* target, const char* path);

/// The directory part of `path` in `buffer`, null-ended. Null with ENAMETOOLONG when it does not fit.
[[nodiscard]] char* dirname_r(const char* path, char* buffer, std::size_t size, char separator);

using Made_Directory = std::function<void(const char* path)>;
/// Makes `path` and what is missing above it, each with exactly `mode` whatever the umask. `made`, when given, is
/// called for each directory made. 0, or -1 and errno. What was made before a failure stays.
[[nodiscard]] int mkdir_p(const char* path, mode_t mode, const Made_Directory& made = {});

/// Writes beside, syncs, sets mode and group (a name looked up below the root, or null), renames, syncs the directory.
/// Readers see the old file or the new one. False and errno on failure; nothing is left beside the old file.
[[nodiscard]] bool write_file_durably(const std::string& path, std::string_view content, mode_t mode,
                                      const char* group = nullptr);

/// Removes what write_file_durably left beside files of `directory` in processes that were cut off: a process calls it
/// before it writes there itself. What a running process is writing stays. `removed` gets the paths, sorted. False and
/// errno when the directory cannot be listed, or for the first of the files that cannot be removed; the others are.
[[nodiscard]] bool remove_unfinished_writes(const std::string& directory, std::vector<std::string>& removed);
/// The same of this one file, for a directory where others write too.
[[nodiscard]] bool remove_unfinished_writes_of(const std::string& path, std::vector<std::string>& removed);

/// The whole file. False and errno on failure; EFBIG when it is larger than `limit_bytes`.
[[nodiscard]] bool read_file(const std::string& path, std::string& content, std::size_t limit_bytes = 16U << 20);

/// Names in the directory, sorted, without "." and "..".
[[nodiscard]] bool list_directory(const std::string& path, std::vector<std::string>& names);

/// Gives a file of the same directory another name, unless something has it: then false with EEXIST, and nothing is
/// changed. False and errno on any failure.
[[nodiscard]] bool rename_without_replacing(const std::string& path, const std::string& new_path);

/// True when the file is gone, also when it was not there.
[[nodiscard]] bool remove_file(const std::string& path);

/// Syncs a directory, so that names made in it survive a power loss.
[[nodiscard]] bool sync_directory(const std::string& path);

/// A name as one safe path segment: bytes outside [A-Za-z0-9-] as %XX (upper case). Never empty for a non-empty name.
[[nodiscard]] std::string encode_file_name(std::string_view name);

}  // namespace platform
