#include <limits>

#include "json/value.h"

// Reading members: optional ones by object_get, mandatory ones by object_require. Both share one conversion.

namespace json_spirit {

namespace {

bool convert(const Value& value, std::string& out) {
  if (value.type() != str_type) return false;
  out = value.get_str();
  return true;
}
bool convert(const Value& value, secure_string& out) {
  if (value.type() == secure_str_type)
    out = value.get_secure_str();
  else if (value.type() == str_type)
    out = secure_string(value.get_str());
  else
    return false;
  return true;
}
bool convert(const Value& value, bool& out) {
  if (value.type() != bool_type) return false;
  out = value.get_bool();
  return true;
}
bool convert(const Value& value, long& out) {
  if (value.type() != int_type || value.is_uint64()) return false;
  out = value.get_int64();
  return true;
}
bool convert(const Value& value, int& out) {
  long wide = 0;
  if (!convert(value, wide) || wide < std::numeric_limits<int>::min() || wide > std::numeric_limits<int>::max())
    return false;
  out = static_cast<int>(wide);
  return true;
}
bool convert(const Value& value, unsigned long& out) {
  if (value.type() != int_type || (!value.is_uint64() && value.get_int64() < 0)) return false;
  out = value.get_uint64();
  return true;
}
bool convert(const Value& value, unsigned short& out) {
  unsigned long wide = 0;
  if (!convert(value, wide) || wide > std::numeric_limits<unsigned short>::max()) return false;
  out = static_cast<unsigned short>(wide);
  return true;
}
bool convert(const Value& value, double& out) {
  if (value.type() != real_type && value.type() != int_type) return false;
  out = value.get_real();
  return true;
}
bool convert(const Value& value, Object& out) {
  if (value.type() != obj_type) return false;
  out = value.get_obj();
  return true;
}
bool convert(const Value& value, Array& out) {
  if (value.type() != array_type) return false;
  out = value.get_array();
  return true;
}
bool convert(const Value& value, Value& out) {
  out = value;
  return true;
}

template <typename T>
bool get_member(const Object& object, std::string_view key, T& out) {
  const Value* const value = object.find(key);
  return value != nullptr && convert(*value, out);
}

template <typename T>
constexpr const char* wanted_name = "";
template <>
constexpr const char* wanted_name<std::string> = "a string";
template <>
constexpr const char* wanted_name<secure_string> = "a string";
template <>
constexpr const char* wanted_name<bool> = "a boolean";
template <>
constexpr const char* wanted_name<int> = "a 32-bit integer";
template <>
constexpr const char* wanted_name<long> = "an integer";
template <>
constexpr const char* wanted_name<unsigned short> = "an unsigned 16-bit integer";
template <>
constexpr const char* wanted_name<unsigned long> = "an unsigned integer";
template <>
constexpr const char* wanted_name<Object> = "an object";
template <>
constexpr const char* wanted_name<Array> = "an array";

}  // namespace

bool object_get(const Object& object, std::string_view key, std::string& out) { return get_member(object, key, out); }
bool object_get(const Object& object, std::string_view key, secure_string& out) { return get_member(object, key, out); }
bool object_get(const Object& object, std::string_view key, bool& out) { return get_member(object, key, out); }
bool object_get(const Object& object, std::string_view key, int& out) { return get_member(object, key, out); }
bool object_get(const Object& object, std::string_view key, long& out) { return get_member(object, key, out); }
bool object_get(const Object& object, std::string_view key, unsigned short& out) {
  return get_member(object, key, out);
}
bool object_get(const Object& object, std::string_view key, unsigned long& out) { return get_member(object, key, out); }
bool object_get(const Object& object, std::string_view key, double& out) { return get_member(object, key, out); }
bool object_get(const Object& object, std::string_view key, Object& out) { return get_member(object, key, out); }
bool object_get(const Object& object, std::string_view key, Array& out) { return get_member(object, key, out); }
bool object_get(const Object& object, std::string_view key, Value& out) { return get_member(object, key, out); }

template <typename T>
T object_require(const Object& object, std::string_view key) {
  const Value* const value = object.find(key);
  if (value == nullptr) throw Error("lack of key '" + std::string(key) + "'");
  T out{};
  if (!convert(*value, out))
    throw Error("key '" + std::string(key) + "' is " + type_name(value->type()) + ", expected " + wanted_name<T>);
  return out;
}

template std::string object_require<std::string>(const Object&, std::string_view);
template secure_string object_require<secure_string>(const Object&, std::string_view);
template bool object_require<bool>(const Object&, std::string_view);
template int object_require<int>(const Object&, std::string_view);
template long object_require<long>(const Object&, std::string_view);
template unsigned short object_require<unsigned short>(const Object&, std::string_view);
template unsigned long object_require<unsigned long>(const Object&, std::string_view);
template Object object_require<Object>(const Object&, std::string_view);
template Array object_require<Array>(const Object&, std::string_view);

}  // namespace json_spirit
