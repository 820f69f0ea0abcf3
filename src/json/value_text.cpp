#include <yajl/yajl_gen.h>
#include <yajl/yajl_parse.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <memory>

#include "json/value.h"
#include "json/wiping_allocation.h"
#include "json/yajl_generator.h"

// JSON text to values and back.

namespace json_spirit {

namespace {

/// Builds a value from yajl's events. The path of open containers holds pointers into the tree: a container does not
/// move while it is open, as only the innermost one grows.
class Value_Builder {
 public:
  Value_Builder(Value& root, const Load_Limits& limits, const char* const* secure_keys)
      : root_(root), limits_(limits), secure_keys_(secure_keys) {}

  bool add(Value value) { return place(std::move(value)) != nullptr; }

  bool add_string(std::string_view text) {
    if (key_is_secure()) return add(Value(secure_string(text)));
    return add(Value(text));
  }

  bool add_number(std::string_view text) {
    std::int64_t integer = 0;
    const char* const last = text.data() + text.size();
    if (auto [end, error] = std::from_chars(text.data(), last, integer); error == std::errc() && end == last)
      return add(Value(static_cast<long long>(integer)));
    std::uint64_t large = 0;
    if (auto [end, error] = std::from_chars(text.data(), last, large); error == std::errc() && end == last)
      return add(Value(static_cast<unsigned long long>(large)));
    double real = 0;
    const auto [end, error] = std::from_chars(text.data(), last, real);
    if (error != std::errc() || end != last || !std::isfinite(real)) return fail("a number is out of range");
    return add(Value(real));
  }

  bool open(Value container) {
    if (open_.size() >= limits_.depth) return fail("deeper than " + std::to_string(limits_.depth) + " levels");
    Value* const placed = place(std::move(container));
    if (placed == nullptr) return false;
    open_.push_back(placed);
    return true;
  }
  bool close() {
    open_.pop_back();
    return true;
  }
  bool key(std::string_view text) {
    if (open_.back()->get_obj().contains(text)) return fail("key '" + std::string(text) + "' stands twice");
    key_ = text;
    return true;
  }
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  bool fail(std::string why) {
    error_ = std::move(why);
    return false;
  }
  [[nodiscard]] bool key_is_secure() const {
    if (secure_keys_ == nullptr || open_.empty() || !open_.back()->is_object()) return false;
    for (const char* const* name = secure_keys_; *name != nullptr; ++name)
      if (key_ == *name) return true;
    return false;
  }
  Value* place(Value value) {
    if (open_.empty()) {
      root_ = std::move(value);
      return &root_;
    }
    Value& parent = *open_.back();
    if (parent.is_object()) {
      Value& member = parent.get_obj()[key_];
      member = std::move(value);
      return &member;
    }
    parent.get_array().push_back(std::move(value));
    return &parent.get_array().back();
  }

  Value& root_;
  const Load_Limits& limits_;
  const char* const* secure_keys_;
  std::vector<Value*> open_;
  std::string key_;
  std::string error_;
};

Value_Builder& builder(void* context) { return *static_cast<Value_Builder*>(context); }
std::string_view view(const unsigned char* text, std::size_t size) {
  return {reinterpret_cast<const char*>(text), size};
}

constexpr yajl_callbacks callbacks = {
    [](void* context) -> int { return builder(context).add(Value()); },
    [](void* context, int value) -> int { return builder(context).add(Value(value != 0)); },
    nullptr,
    nullptr,
    [](void* context, const char* text, std::size_t size) -> int {
      return builder(context).add_number({text, size});
    },
    [](void* context, const unsigned char* text, std::size_t size) -> int {
      return builder(context).add_string(view(text, size));
    },
    [](void* context) -> int { return builder(context).open(Value(Object())); },
    [](void* context, const unsigned char* text, std::size_t size) -> int {
      return builder(context).key(view(text, size));
    },
    [](void* context) -> int { return builder(context).close(); },
    [](void* context) -> int { return builder(context).open(Value(Array())); },
    [](void* context) -> int { return builder(context).close(); }};

std::size_t line_of(std::string_view text, std::size_t at) {
  std::size_t line = 1;
  for (std::size_t i = 0; i < at && i < text.size(); ++i)
    if (text[i] == '\n') ++line;
  return line;
}

std::string describe_failure(yajl_handle parser, std::string_view text, const std::string& own) {
  const std::size_t line = line_of(text, yajl_get_bytes_consumed(parser));
  std::string why = own;
  if (why.empty()) {
    unsigned char* const raw =
        yajl_get_error(parser, 0, reinterpret_cast<const unsigned char*>(text.data()), text.size());
    why = reinterpret_cast<const char*>(raw);
    yajl_free_error(parser, raw);
    while (!why.empty() && why.back() == '\n') why.pop_back();
  }
  return "line " + std::to_string(line) + ": " + why;
}

constexpr char unreadable = '?';

/// Bytes of the character that begins with `byte`, 0 when none does.
std::size_t character_length(unsigned char byte) {
  constexpr struct {
    unsigned char mask;
    unsigned char lead;
  } kinds[] = {{0x80, 0x00}, {0xE0, 0xC0}, {0xF0, 0xE0}, {0xF8, 0xF0}};
  for (std::size_t i = 0; i < std::size(kinds); ++i)
    if ((byte & kinds[i].mask) == kinds[i].lead) return i + 1;
  return 0;
}

/// How much of the text, from its beginning, is UTF-8 as load_json takes it.
std::size_t length_of_utf8(std::string_view text) {
  constexpr unsigned kind_bits = 0xC0;
  constexpr unsigned following = 0x80;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t length = character_length(static_cast<unsigned char>(text[at]));
    if (length == 0 || length > text.size() - at) break;
    for (std::size_t i = 1; i < length; ++i)
      if ((static_cast<unsigned char>(text[at + i]) & kind_bits) != following) return at;
    at += length;
  }
  return at;
}

/// Writes values through yajl; `mask` hides secrets.
class Value_Writer {
 public:
  Value_Writer(yajl_gen generator, bool mask) : generator_(generator), mask_(mask) {}

  void write(const Value& value) {
    switch (value.type()) {
      case obj_type:
        return write_object(value.get_obj());
      case array_type:
        return write_array(value.get_array());
      case str_type:
        return write_string(value.get_str());
      case secure_str_type:
        return yajl_write(generator_, mask_ ? "***" : value.get_secure_str().view());
      case bool_type:
        yajl_gen_bool(generator_, value.get_bool() ? 1 : 0);
        return;
      case int_type:
        return write_integer(value);
      case real_type:
        return write_real(value.get_real());
      case null_type:
        yajl_gen_null(generator_);
        return;
    }
  }

 private:
  /// Output of programs and names of files may be of any bytes. Nobody could read a document that holds them, so a "?"
  /// stands for each byte that is no part of a character.
  void write_string(const std::string& text) {
    std::size_t bad = length_of_utf8(text);
    if (bad == text.size()) return yajl_write(generator_, text);
    std::string clean = text;
    for (; bad < clean.size(); bad += length_of_utf8(std::string_view(clean).substr(bad))) clean[bad] = unreadable;
    yajl_write(generator_, clean);
  }
  void write_object(const Object& object) {
    yajl_gen_map_open(generator_);
    for (const auto& [key, member] : object) {
      write_string(key);
      write(member);
    }
    yajl_gen_map_close(generator_);
  }
  void write_array(const Array& array) {
    yajl_gen_array_open(generator_);
    for (const Value& element : array) write(element);
    yajl_gen_array_close(generator_);
  }
  void write_integer(const Value& value) {
    const std::string text = value.is_uint64() ? std::to_string(value.get_uint64()) : std::to_string(value.get_int64());
    yajl_gen_number(generator_, text.data(), text.size());
  }
  void write_real(double value) {
    char text[64];
    // JSON has no word for what is not finite.
    if (!std::isfinite(value)) {
      yajl_gen_null(generator_);
      return;
    }
    const auto [end, error] = std::to_chars(text, text + sizeof text - 2, value);
    static_cast<void>(error);
    std::string_view written(text, static_cast<std::size_t>(end - text));
    std::string whole(written);
    // A real stays a real when it is read again.
    if (written.find_first_of(".eE") == std::string_view::npos) whole += ".0";
    yajl_gen_number(generator_, whole.data(), whole.size());
  }

  yajl_gen generator_;
  bool mask_;
};

std::string write_text(const Value& value, bool pretty, bool mask) {
  YAJL_Generator generator;
  if (pretty) {
    yajl_gen_config(generator.handle(), yajl_gen_beautify, 1);
    yajl_gen_config(generator.handle(), yajl_gen_indent_string, "  ");
  }
  Value_Writer(generator.handle(), mask).write(value);
  return generator.text();
}

}  // namespace

bool load_json(std::string_view text, Value& value, std::string* error, const Load_Limits& limits,
               const char* const* secure_keys) {
  const auto refuse = [error](std::string why) {
    if (error != nullptr) *error = std::move(why);
    return false;
  };
  if (text.size() > limits.bytes) return refuse("larger than " + std::to_string(limits.bytes) + " bytes");
  Value root;
  Value_Builder building(root, limits, secure_keys);
  // Strings with escapes, which passwords may have, are put together in memory of yajl's own.
  yajl_alloc_funcs memory = wiping_allocation;
  const std::unique_ptr<yajl_handle_t, void (*)(yajl_handle)> parser(
      yajl_alloc(&callbacks, secure_keys == nullptr ? nullptr : &memory, &building), &yajl_free);
  if (!parser) return refuse("out of memory");
  yajl_status status = yajl_parse(parser.get(), reinterpret_cast<const unsigned char*>(text.data()), text.size());
  if (status == yajl_status_ok) status = yajl_complete_parse(parser.get());
  if (status != yajl_status_ok) return refuse(describe_failure(parser.get(), text, building.error()));
  value = std::move(root);
  return true;
}

std::string dump_json(const Value& value) { return write_text(value, false, false); }
std::string dump_json_pretty(const Value& value) { return write_text(value, true, false); }
std::string dump_json_for_log(const Value& value) { return write_text(value, false, true); }

}  // namespace json_spirit
