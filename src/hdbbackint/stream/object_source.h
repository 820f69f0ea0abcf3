#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>

#include "hdbbackint/stop_source.h"
#include "platform/unique_descriptor.h"

namespace hdbbackint {

/// Where the bytes of a backup come from: a named pipe that HANA made, or a file. One thread.
class Object_Source {
 public:
  enum class Kind { pipe, file };

  /// `path` documented. A pipe is never made here, and opening it does not wait for HANA. Null with a reason when it is
  /// not there, is something else, or may not be read. Reads end when `stop` is requested.
  [[nodiscard]] static std::unique_ptr<Object_Source> open(Kind kind, const std::string& path, Stop_Source& stop,
                                                           std::string& error);

  /// Fills `data` as far as the stream goes; less than `size` only at its end. -1 on failure with error() set. The end
  /// of a pipe is that all writers have closed it; a pipe that nobody has opened yet is waited for.
  [[nodiscard]] ssize_t fill(char* data, std::size_t size);
  [[nodiscard]] const std::string& error() const { return error_; }
  /// Lets HANA notice at once that nobody reads any more.
  void close() { file_.reset(); }

 private:
  Object_Source(Kind kind, std::string path, Stop_Source& stop, platform::Unique_Descriptor file);
  ssize_t read_some(char* data, std::size_t size);
  bool wait_for_data(bool& hung_up);
  ssize_t fail(const std::string& why);

  Kind kind_;
  std::string path_;
  Stop_Source& stop_;
  platform::Unique_Descriptor file_;
  std::string error_;
};

}  // namespace hdbbackint
