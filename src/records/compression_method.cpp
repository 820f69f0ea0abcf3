#include "records/compression_method.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "platform/log.h"

namespace {

struct Method_Name {
  Compression_Method method;
  const char* name;
};

constexpr std::array<Method_Name, COMPR_MAX> method_names = {{
    {COMPR_NONE, "none"},
    {COMPR_AUTO, "auto"},
    {COMPR_LZOP, "lzop"},
    {COMPR_ZSTD, "zstd"},
}};

}  // namespace

Compression_Method compression_name_to_value(const char* name, std::size_t length) {
  const std::string_view wanted = name == nullptr ? std::string_view() : std::string_view(name, length);
  const auto* found = std::find_if(method_names.begin(), method_names.end(),
                                   [wanted](const Method_Name& row) { return row.name == wanted; });
  if (found != method_names.end()) return found->method;
  const std::string shown = platform::cut_for_log(wanted);
  D3_WARNING("Unknown compression method '%C', the stream is stored uncompressed\n", shown.c_str());
  return COMPR_NONE;
}

const char* compression_value_to_name(Compression_Method method) {
  const auto* found = std::find_if(method_names.begin(), method_names.end(),
                                   [method](const Method_Name& row) { return row.method == method; });
  return found == method_names.end() ? nullptr : found->name;
}
