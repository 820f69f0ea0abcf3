#include "json/yajl_handler.h"

#include <yajl/yajl_parse.h>

#include <memory>

#include "json/value.h"

namespace {

/// What the callbacks share: the handler, and the depth that bounds hostile nesting.
struct Parse {
  YAJL_Handler& handler;
  std::size_t depth = 0;
  bool too_deep = false;

  bool enter() {
    too_deep = ++depth > json_spirit::Load_Limits().depth;
    return !too_deep;
  }
  void leave() { --depth; }
};

Parse& parse_of(void* context) { return *static_cast<Parse*>(context); }
const char* text_of(const unsigned char* text) { return reinterpret_cast<const char*>(text); }

int on_null(void* context) { return parse_of(context).handler.handle_null_i(); }
int on_boolean(void* context, int value) { return parse_of(context).handler.handle_boolean_i(value != 0); }
int on_number(void* context, const char* text, std::size_t length) {
  return parse_of(context).handler.handle_number_i(text, length);
}
int on_string(void* context, const unsigned char* text, std::size_t length) {
  return parse_of(context).handler.handle_string_i(text_of(text), length);
}
int on_start_map(void* context) { return parse_of(context).enter() && parse_of(context).handler.handle_start_map_i(); }
int on_map_key(void* context, const unsigned char* text, std::size_t length) {
  return parse_of(context).handler.handle_map_key_i(text_of(text), length);
}
int on_end_map(void* context) {
  parse_of(context).leave();
  return parse_of(context).handler.handle_end_map_i();
}
int on_start_array(void* context) {
  return parse_of(context).enter() && parse_of(context).handler.handle_start_array_i();
}
int on_end_array(void* context) {
  parse_of(context).leave();
  return parse_of(context).handler.handle_end_array_i();
}

constexpr yajl_callbacks callbacks = {on_null,      on_boolean, nullptr,    nullptr,        on_number,   on_string,
                                      on_start_map, on_map_key, on_end_map, on_start_array, on_end_array};

std::string describe_error(yajl_handle parser, std::string_view text) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  unsigned char* const raw = yajl_get_error(parser, 0, bytes, text.size());
  std::string message(text_of(raw));
  yajl_free_error(parser, raw);
  while (!message.empty() && message.back() == '\n') message.pop_back();
  return message + " at byte " + std::to_string(yajl_get_bytes_consumed(parser));
}

JSON_Parse_Result refused(int code, std::string message) { return {false, code, std::move(message)}; }

}  // namespace

JSON_Parse_Result parse_json(std::string_view text, YAJL_Handler& handler) {
  const json_spirit::Load_Limits limits;
  if (text.size() > limits.bytes)
    return refused(0, "the document is larger than " + std::to_string(limits.bytes) + " bytes");
  Parse parse{handler};
  const std::unique_ptr<yajl_handle_t, void (*)(yajl_handle)> parser(yajl_alloc(&callbacks, nullptr, &parse),
                                                                     &yajl_free);
  if (!parser) return refused(0, "out of memory");
  yajl_status status = yajl_parse(parser.get(), reinterpret_cast<const unsigned char*>(text.data()), text.size());
  if (status == yajl_status_ok) status = yajl_complete_parse(parser.get());
  if (status == yajl_status_ok) return {true, handler.error(), {}};
  if (parse.too_deep) return refused(0, "the document is deeper than " + std::to_string(limits.depth) + " levels");
  if (status == yajl_status_client_canceled)
    return refused(handler.error(), "refused with code " + std::to_string(handler.error()) + " at byte " +
                                        std::to_string(yajl_get_bytes_consumed(parser.get())));
  return refused(0, describe_error(parser.get(), text));
}
