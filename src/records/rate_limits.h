#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "json/value.h"

/// A limit for a part of the day, in local time.
struct Rate_Control_Entry {
  unsigned start_time = 0;                 ///< seconds of the day
  unsigned end_time = 0;                   ///< seconds of the day, exclusive; before start_time: over midnight
  std::uint64_t max_bytes_per_second = 0;  ///< 0: no limit
  [[nodiscard]] bool operator==(const Rate_Control_Entry&) const = default;
};

/// The limits of a job: towards the pool (destination) and from the source.
class Rate_Limits {
 public:
  static const char* const dest_key;  ///< "dest_rate_limits"
  static const char* const src_key;   ///< "src_rate_limits"

  std::vector<Rate_Control_Entry> destination;
  std::vector<Rate_Control_Entry> source;

  /// Writes each list under its key as a JSON string that holds the text of an array; with `skip_empty` a key whose
  /// list is empty is left out.
  void to_json_in_object(json_spirit::Object& object, bool skip_empty) const;
  /// Reads the same keys; missing keys leave empty lists. False with a reason for a malformed one.
  [[nodiscard]] bool from_json_in_object(const json_spirit::Object& object, std::string* error = nullptr);

  /// The limit in force at `second_of_day`, 0 for none: the smallest of the entries that hold then.
  [[nodiscard]] static std::uint64_t limit_at(const std::vector<Rate_Control_Entry>& entries, unsigned second_of_day);
};
