#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/secure_string.h"

namespace json_spirit {

class Value;
class Object;
using Array = std::vector<Value>;

enum Value_type {
  obj_type = 0,
  array_type = 1,
  str_type = 2,
  secure_str_type = 3,
  bool_type = 4,
  int_type = 5,
  real_type = 6,
  null_type = 7
};

/// Name of a type for messages: "object", "array", "string", "string", "boolean", "integer", "number", "null".
[[nodiscard]] const char* type_name(Value_type type);

/// A value is not of the wanted type, or a key is missing. what() names the key where one is known.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One JSON value. Copies are deep. Not shared between threads while one writes.
class Value {
 public:
  Value() noexcept;  ///< null
  Value(std::nullptr_t) noexcept;
  Value(const Object& value);
  Value(Object&& value);
  Value(const Array& value);
  Value(Array&& value);
  Value(const std::string& value);
  Value(std::string&& value);
  Value(std::string_view value);
  Value(const char* value);
  Value(const secure_string& value);
  Value(secure_string&& value);
  Value(bool value) noexcept;
  Value(int value) noexcept;
  Value(long value) noexcept;
  Value(long long value) noexcept;
  Value(unsigned value) noexcept;
  Value(unsigned long value) noexcept;
  Value(unsigned long long value) noexcept;
  Value(double value) noexcept;
  Value(const Value& other);
  Value(Value&& other) noexcept;
  Value& operator=(const Value& other);
  Value& operator=(Value&& other) noexcept;
  ~Value();

  [[nodiscard]] Value_type type() const noexcept;
  [[nodiscard]] bool is_object() const noexcept { return type() == obj_type; }
  [[nodiscard]] bool is_array() const noexcept { return type() == array_type; }
  [[nodiscard]] bool is_string() const noexcept { return type() == str_type; }
  [[nodiscard]] bool is_null() const noexcept { return type() == null_type; }
  /// An integer above the signed 64-bit range.
  [[nodiscard]] bool is_uint64() const noexcept;

  /// Each throws Error when the value is of another type (integers also when they do not fit).
  [[nodiscard]] const Object& get_obj() const;
  [[nodiscard]] Object& get_obj();
  [[nodiscard]] const Array& get_array() const;
  [[nodiscard]] Array& get_array();
  [[nodiscard]] const std::string& get_str() const;
  [[nodiscard]] const secure_string& get_secure_str() const;
  [[nodiscard]] bool get_bool() const;
  [[nodiscard]] int get_int() const;
  [[nodiscard]] std::int64_t get_int64() const;
  [[nodiscard]] std::uint64_t get_uint64() const;
  [[nodiscard]] double get_real() const;  ///< also of an integer

  [[nodiscard]] bool operator==(const Value& other) const;

 private:
  using Storage = std::variant<std::unique_ptr<Object>, std::unique_ptr<Array>, std::string, secure_string, bool,
                               std::int64_t, std::uint64_t, double, std::nullptr_t>;
  Storage storage_;
};

/// String-keyed members in insertion order, keys unique, a key set again keeps its place. Lookup by index: the cost
/// does not grow with the number of members beyond a small object.
class Object {
 public:
  using Member = std::pair<std::string, Value>;
  using const_iterator = std::vector<Member>::const_iterator;

  Object();
  Object(std::initializer_list<Member> members);
  Object(const Object& other);
  Object(Object&& other) noexcept;
  Object& operator=(const Object& other);
  Object& operator=(Object&& other) noexcept;
  ~Object();

  /// The member's value, made null when the key is new.
  Value& operator[](std::string_view key);
  /// Null when there is no such key.
  [[nodiscard]] const Value* find(std::string_view key) const;
  [[nodiscard]] Value* find(std::string_view key);
  [[nodiscard]] bool contains(std::string_view key) const { return find(key) != nullptr; }
  bool erase(std::string_view key);
  [[nodiscard]] std::size_t size() const { return members_.size(); }
  [[nodiscard]] bool empty() const { return members_.empty(); }
  void clear();
  [[nodiscard]] const_iterator begin() const { return members_.begin(); }
  [[nodiscard]] const_iterator end() const { return members_.end(); }
  [[nodiscard]] bool operator==(const Object& other) const { return members_ == other.members_; }

 private:
  struct Index;
  std::vector<Member> members_;
  std::unique_ptr<Index> index_;  ///< made once the object has grown
  [[nodiscard]] std::size_t position(std::string_view key) const;
};

/// Optional members. Each is true only when the key is there with a value of the fitting type, which is then stored;
/// otherwise the output is left alone. A type mismatch counts as absent. Never throws.
bool object_get(const Object& object, std::string_view key, std::string& out);
bool object_get(const Object& object, std::string_view key, secure_string& out);
bool object_get(const Object& object, std::string_view key, bool& out);
bool object_get(const Object& object, std::string_view key, int& out);
bool object_get(const Object& object, std::string_view key, long& out);
bool object_get(const Object& object, std::string_view key, unsigned short& out);
bool object_get(const Object& object, std::string_view key, unsigned long& out);
bool object_get(const Object& object, std::string_view key, double& out);
bool object_get(const Object& object, std::string_view key, Object& out);
bool object_get(const Object& object, std::string_view key, Array& out);
bool object_get(const Object& object, std::string_view key, Value& out);

/// Mandatory members: throw Error naming the key when it is missing ("lack of key 'x'") or of another type
/// ("key 'x' is a string, expected integer").
template <typename T>
[[nodiscard]] T object_require(const Object& object, std::string_view key);

extern template std::string object_require<std::string>(const Object&, std::string_view);
extern template secure_string object_require<secure_string>(const Object&, std::string_view);
extern template bool object_require<bool>(const Object&, std::string_view);
extern template int object_require<int>(const Object&, std::string_view);
extern template long object_require<long>(const Object&, std::string_view);
extern template unsigned short object_require<unsigned short>(const Object&, std::string_view);
extern template unsigned long object_require<unsigned long>(const Object&, std::string_view);
extern template Object object_require<Object>(const Object&, std::string_view);
extern template Array object_require<Array>(const Object&, std::string_view);

/// What a document may hold at most; more is refused, not cut.
struct Load_Limits {
  std::size_t bytes = 16U << 20;
  std::size_t depth = 100;
};

/// Reads one JSON document. False with a reason ("line 3: ...", "deeper than 100 levels") in `error` when it is not
/// one. Strings whose key stands in `secure_keys` (null-ended list, or null) become secure strings.
[[nodiscard]] bool load_json(std::string_view text, Value& value, std::string* error = nullptr,
                             const Load_Limits& limits = {}, const char* const* secure_keys = nullptr);

/// The value as JSON text without blanks; keys in insertion order, null members written. A secure string is written as
/// it is: only for a consumer that needs the secret.
[[nodiscard]] std::string dump_json(const Value& value);
/// The same, broken into lines with two blanks of indent, for people.
[[nodiscard]] std::string dump_json_pretty(const Value& value);
/// For logs: secure strings appear as "***".
[[nodiscard]] std::string dump_json_for_log(const Value& value);

}  // namespace json_spirit
