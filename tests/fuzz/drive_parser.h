#pragma once

#include <ace/Log_Msg.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "json/value.h"
#include "json/yajl_generator.h"
#include "json/yajl_parser_t.h"

namespace fuzz {

/// Parses one document and writes out what came of it.
template <typename Parser>
int drive_parser(const std::uint8_t* data, std::size_t size) {
  static const bool silent = [] {
    ACE_LOG_MSG->clr_flags(ACE_LOG_MSG->flags());
    return true;
  }();
  static_cast<void>(silent);
  Parser parser;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (!parse_json(text, parser).ok) return 0;
  const YAJL_Generator generator;
  if (parser.result()->generate(generator.handle()) != 0) std::abort();
  // What is written is a JSON object, whatever was read.
  json_spirit::Value written;
  if (!json_spirit::load_json(generator.text(), written) || !written.is_object()) std::abort();
  return 0;
}

}  // namespace fuzz
