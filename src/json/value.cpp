#include "json/value.h"

#include <limits>
#include <unordered_map>

namespace json_spirit {

namespace {

/// Below this many members a scan is faster than a hash index.
constexpr std::size_t index_threshold = 16;
constexpr std::size_t npos = static_cast<std::size_t>(-1);

[[noreturn]] void wrong_type(Value_type is, const char* wanted) {
  throw Error(std::string("value is ") + type_name(is) + ", expected " + wanted);
}

}  // namespace

const char* type_name(Value_type type) {
  switch (type) {
    case obj_type:
      return "object";
    case array_type:
      return "array";
    case str_type:
    case secure_str_type:
      return "string";
    case bool_type:
      return "boolean";
    case int_type:
      return "integer";
    case real_type:
      return "number";
    case null_type:
      return "null";
  }
  return "unknown";
}

Value::Value() noexcept : storage_(nullptr) {}
Value::Value(std::nullptr_t) noexcept : storage_(nullptr) {}
Value::Value(const Object& value) : storage_(std::make_unique<Object>(value)) {}
Value::Value(Object&& value) : storage_(std::make_unique<Object>(std::move(value))) {}
Value::Value(const Array& value) : storage_(std::make_unique<Array>(value)) {}
Value::Value(Array&& value) : storage_(std::make_unique<Array>(std::move(value))) {}
Value::Value(const std::string& value) : storage_(value) {}
Value::Value(std::string&& value) : storage_(std::move(value)) {}
Value::Value(std::string_view value) : storage_(std::string(value)) {}
Value::Value(const char* value) : storage_(std::string(value)) {}
Value::Value(const secure_string& value) : storage_(value) {}
Value::Value(secure_string&& value) : storage_(std::move(value)) {}
Value::Value(bool value) noexcept : storage_(value) {}
Value::Value(int value) noexcept : storage_(std::int64_t{value}) {}
Value::Value(long value) noexcept : storage_(std::int64_t{value}) {}
Value::Value(long long value) noexcept : storage_(static_cast<std::int64_t>(value)) {}
Value::Value(unsigned value) noexcept : storage_(std::int64_t{value}) {}
Value::Value(unsigned long value) noexcept {
  // Only what does not fit a signed number is kept unsigned, so that equal numbers compare equal.
  if (value <= static_cast<unsigned long>(std::numeric_limits<std::int64_t>::max()))
    storage_ = static_cast<std::int64_t>(value);
  else
    storage_ = std::uint64_t{value};
}
Value::Value(unsigned long long value) noexcept : Value(static_cast<unsigned long>(value)) {}
Value::Value(double value) noexcept : storage_(value) {}

Value::Value(const Value& other) : storage_(nullptr) {
  if (const auto* object = std::get_if<std::unique_ptr<Object>>(&other.storage_))
    storage_ = std::make_unique<Object>(**object);
  else if (const auto* array = std::get_if<std::unique_ptr<Array>>(&other.storage_))
    storage_ = std::make_unique<Array>(**array);
  else if (const auto* text = std::get_if<std::string>(&other.storage_))
    storage_ = *text;
  else if (const auto* secret = std::get_if<secure_string>(&other.storage_))
    storage_ = *secret;
  else if (const auto* flag = std::get_if<bool>(&other.storage_))
    storage_ = *flag;
  else if (const auto* number = std::get_if<std::int64_t>(&other.storage_))
    storage_ = *number;
  else if (const auto* large = std::get_if<std::uint64_t>(&other.storage_))
    storage_ = *large;
  else if (const auto* real = std::get_if<double>(&other.storage_))
    storage_ = *real;
}

Value::Value(Value&& other) noexcept : storage_(std::exchange(other.storage_, Storage(nullptr))) {}

Value& Value::operator=(const Value& other) {
  if (this != &other) {
    Value copy(other);
    storage_ = std::move(copy.storage_);
    copy.storage_ = nullptr;
  }
  return *this;
}

Value& Value::operator=(Value&& other) noexcept {
  // Through a temporary: `other` may live inside what this value holds.
  Storage taken = std::exchange(other.storage_, Storage(nullptr));
  storage_ = std::move(taken);
  return *this;
}

Value::~Value() = default;

Value_type Value::type() const noexcept {
  static constexpr Value_type types[] = {obj_type, array_type, str_type,  secure_str_type, bool_type,
                                         int_type, int_type,   real_type, null_type};
  return types[storage_.index()];
}

bool Value::is_uint64() const noexcept { return std::holds_alternative<std::uint64_t>(storage_); }

const Object& Value::get_obj() const {
  if (type() != obj_type) wrong_type(type(), "object");
  return *std::get<std::unique_ptr<Object>>(storage_);
}
Object& Value::get_obj() {
  if (type() != obj_type) wrong_type(type(), "object");
  return *std::get<std::unique_ptr<Object>>(storage_);
}
const Array& Value::get_array() const {
  if (type() != array_type) wrong_type(type(), "array");
  return *std::get<std::unique_ptr<Array>>(storage_);
}
Array& Value::get_array() {
  if (type() != array_type) wrong_type(type(), "array");
  return *std::get<std::unique_ptr<Array>>(storage_);
}
const std::string& Value::get_str() const {
  if (type() != str_type) wrong_type(type(), "string");
  return std::get<std::string>(storage_);
}
const secure_string& Value::get_secure_str() const {
  if (type() != secure_str_type) wrong_type(type(), "secret string");
  return std::get<secure_string>(storage_);
}
bool Value::get_bool() const {
  if (type() != bool_type) wrong_type(type(), "boolean");
  return std::get<bool>(storage_);
}
int Value::get_int() const {
  const std::int64_t value = get_int64();
  if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
    throw Error("integer does not fit 32 bits");
  return static_cast<int>(value);
}
std::int64_t Value::get_int64() const {
  if (type() != int_type) wrong_type(type(), "integer");
  if (is_uint64()) throw Error("integer does not fit 64 signed bits");
  return std::get<std::int64_t>(storage_);
}
std::uint64_t Value::get_uint64() const {
  if (type() != int_type) wrong_type(type(), "integer");
  if (is_uint64()) return std::get<std::uint64_t>(storage_);
  const std::int64_t value = std::get<std::int64_t>(storage_);
  if (value < 0) throw Error("integer is negative, expected an unsigned one");
  return static_cast<std::uint64_t>(value);
}
double Value::get_real() const {
  if (type() == real_type) return std::get<double>(storage_);
  if (type() != int_type) wrong_type(type(), "number");
  return is_uint64() ? static_cast<double>(get_uint64()) : static_cast<double>(get_int64());
}

bool Value::operator==(const Value& other) const {
  if (storage_.index() != other.storage_.index()) return false;
  switch (type()) {
    case obj_type:
      return get_obj() == other.get_obj();
    case array_type:
      return get_array() == other.get_array();
    default:
      return storage_ == other.storage_;
  }
}

struct Object::Index {
  std::unordered_map<std::string, std::size_t> positions;
};

Object::Object() = default;
Object::Object(std::initializer_list<Member> members) {
  for (const Member& member : members) (*this)[member.first] = member.second;
}
Object::Object(const Object& other)
    : members_(other.members_), index_(other.index_ ? std::make_unique<Index>(*other.index_) : nullptr) {}
Object::Object(Object&& other) noexcept : members_(std::move(other.members_)), index_(std::move(other.index_)) {
  other.members_.clear();
}
Object& Object::operator=(const Object& other) {
  if (this != &other) *this = Object(other);
  return *this;
}
Object& Object::operator=(Object&& other) noexcept {
  std::vector<Member> members = std::exchange(other.members_, {});
  std::unique_ptr<Index> index = std::move(other.index_);
  members_ = std::move(members);
  index_ = std::move(index);
  return *this;
}
Object::~Object() = default;

std::size_t Object::position(std::string_view key) const {
  if (index_) {
    const auto found = index_->positions.find(std::string(key));
    return found == index_->positions.end() ? npos : found->second;
  }
  for (std::size_t at = 0; at < members_.size(); ++at)
    if (members_[at].first == key) return at;
  return npos;
}

Value& Object::operator[](std::string_view key) {
  const std::size_t at = position(key);
  if (at != npos) return members_[at].second;
  members_.emplace_back(std::string(key), Value());
  if (index_) {
    index_->positions.emplace(key, members_.size() - 1);
  } else if (members_.size() > index_threshold) {
    index_ = std::make_unique<Index>();
    for (std::size_t i = 0; i < members_.size(); ++i) index_->positions.emplace(members_[i].first, i);
  }
  return members_.back().second;
}

const Value* Object::find(std::string_view key) const {
  const std::size_t at = position(key);
  return at == npos ? nullptr : &members_[at].second;
}
Value* Object::find(std::string_view key) {
  const std::size_t at = position(key);
  return at == npos ? nullptr : &members_[at].second;
}

bool Object::erase(std::string_view key) {
  const std::size_t at = position(key);
  if (at == npos) return false;
  members_.erase(members_.begin() + static_cast<std::ptrdiff_t>(at));
  if (index_) {
    index_->positions.clear();
    for (std::size_t i = 0; i < members_.size(); ++i) index_->positions.emplace(members_[i].first, i);
  }
  return true;
}

void Object::clear() {
  members_.clear();
  index_.reset();
}

}  // namespace json_spirit
