#pragma once

#include <memory>
#include <string>

#include "hdbbackint/stop_source.h"
#include "hdbbackint/stream/byte_sink.h"
#include "hdbbackint/stream/object_source.h"
#include "platform/unique_descriptor.h"

namespace hdbbackint {

/// Where a restored object goes: a named pipe that HANA made and reads, a file that is made here, or the null device.
/// One thread.
class Object_Destination : public Byte_Sink {
 public:
  /// `path` documented, `kind` what the object was when it was saved; a pipe that stands at `path` is a pipe whatever
  /// `kind` says, and is never made here. Waits until HANA has opened its end. Null with a reason.
  [[nodiscard]] static std::unique_ptr<Object_Destination> open(Object_Source::Kind kind, const std::string& path,
                                                                Stop_Source& stop, std::string& error);
  ~Object_Destination() override;

  /// Waits as long as the reader is there, however slow it is.
  bool write(const char* data, std::size_t size) override;
  /// Everything was written: a file appears under its name, a pipe is closed. Without it a file leaves nothing.
  [[nodiscard]] bool finish();
  [[nodiscard]] const std::string& error() const override { return error_; }

 private:
  Object_Destination(std::string path, std::string temporary, platform::Unique_Descriptor file, Stop_Source& stop);
  static std::unique_ptr<Object_Destination> open_pipe(const std::string& path, Stop_Source& stop, std::string& error);
  static std::unique_ptr<Object_Destination> open_file(const std::string& path, Stop_Source& stop, std::string& error);
  bool wait_for_room();
  bool fail(const std::string& why);

  std::string path_;
  std::string temporary_;  ///< documented; empty when there is none
  platform::Unique_Descriptor file_;
  Stop_Source& stop_;
  std::string error_;
};

}  // namespace hdbbackint
