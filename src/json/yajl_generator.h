#pragma once

#include <yajl/yajl_gen.h>

#include <string>
#include <string_view>

/// Owns one yajl generator for objects with a generate(yajl_gen) operation.
class YAJL_Generator {
 public:
  YAJL_Generator();
  ~YAJL_Generator();
  YAJL_Generator(const YAJL_Generator&) = delete;
  YAJL_Generator& operator=(const YAJL_Generator&) = delete;

  [[nodiscard]] yajl_gen handle() const { return handle_; }
  /// What was generated so far.
  [[nodiscard]] std::string text() const;

 private:
  yajl_gen handle_;
};

/// Writes a string through a raw generator.
void yajl_write(yajl_gen generator, std::string_view text);
