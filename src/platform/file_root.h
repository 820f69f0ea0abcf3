#pragma once

#include <string>
#include <string_view>

namespace platform {

/// What stands before every absolute path of the product and of SAP: nothing in production, a folder in tests, in the
/// demo and for a second installation. Paths in code, records and messages are always the documented ones; they are
/// mapped where the operating system is asked.
class File_Root {
 public:
  File_Root() = default;
  /// `prefix`: absolute folder without a trailing '/', or empty.
  explicit File_Root(std::string prefix);

  [[nodiscard]] const std::string& prefix() const { return prefix_; }
  /// The path to give to the operating system. Relative paths stay as they are.
  [[nodiscard]] std::string real(std::string_view documented) const;
  /// The documented path of a real one; paths outside the root stay as they are.
  [[nodiscard]] std::string documented(std::string_view real) const;

  [[nodiscard]] static const File_Root& current();
  /// Sets the process-wide root; for program start, before threads exist.
  static void set_current(File_Root root);
  /// What stands before "/opt/tarvex/dorsal3/bin/" in the path of the running program; empty when it is not installed
  /// below such a folder.
  [[nodiscard]] static File_Root of_running_program();

 private:
  std::string prefix_;
};

/// A test's own root for one scope.
class Scoped_File_Root {
 public:
  explicit Scoped_File_Root(std::string prefix);
  ~Scoped_File_Root();
  Scoped_File_Root(const Scoped_File_Root&) = delete;
  Scoped_File_Root& operator=(const Scoped_File_Root&) = delete;

 private:
  File_Root previous_;
};

}  // namespace platform
