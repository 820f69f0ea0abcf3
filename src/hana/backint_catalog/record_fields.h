#pragma once

#include <cstdint>
#include <string>

#include "json/value.h"

namespace sap_hana {

/// Reads the members of one record: a missing key leaves the field alone, a value of another type throws
/// json_spirit::Error naming the key.
class Record_Reader {
 public:
  explicit Record_Reader(const json_spirit::Object& object) : object_(object) {}

  template <typename T>
  Record_Reader& operator()(const char* key, T& field) {
    if (object_.contains(key)) field = json_spirit::object_require<T>(object_, key);
    return *this;
  }

 private:
  const json_spirit::Object& object_;
};

}  // namespace sap_hana
