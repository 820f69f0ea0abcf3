#include "hana/common/json_file.h"

#include "platform/files.h"
#include "platform/log.h"

namespace sap_hana {

bool load_json(const std::string& path, json_spirit::Value& value, int /*flags*/) {
  std::string text;
  return platform::read_file(path, text) && json_spirit::load_json(text, value);
}

bool dump_json(const std::string& path, const json_spirit::Value& value, int /*flags*/, bool /*pretty*/, mode_t mode) {
  if (platform::write_file_durably(path, json_spirit::dump_json(value), mode)) return true;
  D3_ERROR("Failed to write '%C': %m\n", path.c_str());
  return false;
}

}  // namespace sap_hana
