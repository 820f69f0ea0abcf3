#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// One open object or array of a document that is being parsed.
struct JSON_State {
  bool obj = false;         ///< an object; false: an array
  std::uint64_t key = 0;    ///< bit of the current key, 0 for none
  std::uint64_t masks = 0;  ///< bits of the keys seen at this level
};

/// One row of a key table: key text, its length, its value. A row with value 0 ends the table.
template <typename T>
struct Key2_Value_T {
  const char* key;
  std::size_t length;
  T value;
};

/// The value of a key, exact text and length; 0 when the table does not hold it. `text` needs no terminator.
template <typename T>
[[nodiscard]] T find_key(const Key2_Value_T<T>* table, const char* text, std::size_t length) {
  for (; table->value != 0; ++table)
    if (table->length == length && std::memcmp(table->key, text, length) == 0) return table->value;
  return 0;
}
