#pragma once

#include <string>
#include <string_view>

#include "platform/file_root.h"

namespace support {

/// A temporary folder that is the process's file root for its life and is removed with all it holds.
class Temp_Root {
 public:
  Temp_Root();
  ~Temp_Root();
  Temp_Root(const Temp_Root&) = delete;
  Temp_Root& operator=(const Temp_Root&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  /// The real path of a documented one.
  [[nodiscard]] std::string real(std::string_view documented) const { return path_ + std::string(documented); }
  /// Makes a file, with the directories above it, at a documented path.
  void write(std::string_view documented, std::string_view content, unsigned mode = 0644) const;
  [[nodiscard]] std::string read(std::string_view documented) const;
  [[nodiscard]] bool exists(std::string_view documented) const;
  void make_directory(std::string_view documented) const;

 private:
  std::string path_;
  platform::Scoped_File_Root scope_;
};

}  // namespace support
