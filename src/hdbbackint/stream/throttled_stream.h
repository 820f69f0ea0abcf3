#pragma once

#include "hdbbackint/stream/byte_input.h"
#include "hdbbackint/stream/byte_sink.h"

namespace hdbbackint {

/// Gives the bytes of another stream no faster than a throttle allows. Neither is owned. One thread.
class Throttled_Input : public Byte_Input {
 public:
  Throttled_Input(Byte_Input& input, Throttle& throttle) : input_(input), throttle_(throttle) {}
  ssize_t read(char* data, std::size_t size) override;
  [[nodiscard]] const std::string& error() const override { return error_.empty() ? input_.error() : error_; }

 private:
  Byte_Input& input_;
  Throttle& throttle_;
  std::string error_;
};

/// Passes bytes on no faster than a throttle allows. Neither is owned. One thread.
class Throttled_Sink : public Byte_Sink {
 public:
  Throttled_Sink(Byte_Sink& sink, Throttle& throttle) : sink_(sink), throttle_(throttle) {}
  bool write(const char* data, std::size_t size) override;
  [[nodiscard]] const std::string& error() const override { return error_.empty() ? sink_.error() : error_; }

 private:
  Byte_Sink& sink_;
  Throttle& throttle_;
  std::string error_;
};

}  // namespace hdbbackint
