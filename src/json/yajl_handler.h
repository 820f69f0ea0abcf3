#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Takes the events of one JSON document. The operations of a concrete parser are called in document order by
/// parse_json; each returns true to go on and false to stop the parse. Texts have no terminator.
///
/// A handler that a module makes is destroyed by the creator that made it. One thread at a time.
class YAJL_Handler {
 public:
  virtual ~YAJL_Handler() = default;

  virtual bool handle_null_i() = 0;
  virtual bool handle_boolean_i(bool value) = 0;
  virtual bool handle_integer_i(long long value) = 0;
  virtual bool handle_double_i(double value) = 0;
  /// Every number comes here, as its text; the two above are for drivers that ask for converted numbers.
  virtual bool handle_number_i(const char* text, std::size_t length) = 0;
  virtual bool handle_string_i(const char* text, std::size_t length) = 0;
  virtual bool handle_start_map_i() = 0;
  virtual bool handle_map_key_i(const char* text, std::size_t length) = 0;
  virtual bool handle_end_map_i() = 0;
  virtual bool handle_start_array_i() = 0;
  virtual bool handle_end_array_i() = 0;

  /// The last error, a JSON_Parser_Error.
  [[nodiscard]] int error() const { return err_; }

 protected:
  int err_ = 0;
};

/// Outcome of one document.
struct JSON_Parse_Result {
  bool ok = false;
  int code = 0;         ///< the handler's JSON_Parser_Error, 0 when the text itself is not JSON
  std::string message;  ///< what, where, why; empty when ok
};

/// Drives yajl over `text` (UTF-8, validated) into `handler`. Linear in the input; refuses documents of more than
/// 16 MiB or deeper than 100 levels before the handler sees the excess.
[[nodiscard]] JSON_Parse_Result parse_json(std::string_view text, YAJL_Handler& handler);
