#pragma once

#include <ace/Refcounted_Auto_Ptr.h>
#include <ace/Thread_Mutex.h>

#include "json/parser_errors.h"
#include "json/yajl_handler.h"

/// Base of the parsers that make one `T` out of a document. Its defaults: null, boolean and number are accepted and
/// ignored; an array is refused with JSON_PARSER_E_INVALID_VALUE_TYPE.
template <typename T>
class YAJL_Parser : public YAJL_Handler {
 public:
  using Result = ACE_Refcounted_Auto_Ptr<T, ACE_Thread_Mutex>;

  bool handle_null_i() override { return true; }
  bool handle_boolean_i(bool) override { return true; }
  bool handle_integer_i(long long) override { return true; }
  bool handle_double_i(double) override { return true; }
  bool handle_number_i(const char*, std::size_t) override { return true; }
  bool handle_start_array_i() override { return refuse_type(); }
  bool handle_end_array_i() override { return refuse_type(); }

  /// The object made, shared with the parser; empty when it could not be allocated.
  virtual Result result() = 0;

 protected:
  bool refuse_type() {
    err_ = JSON_PARSER_E_INVALID_VALUE_TYPE;
    return false;
  }
};
