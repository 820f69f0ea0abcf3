#include "hana/job/catalog_metadata.h"

#include <utility>

#include "platform/log.h"

namespace {

constexpr const char* databases_key = "databases";
constexpr const char* sid_key = "sid";
constexpr const char* instance_number_key = "instance_number";
constexpr const char* instance_name_key = "instance_name";
constexpr const char* system_version_key = "system_version";
constexpr const char* extended_attrs_key = "extended_attrs";
constexpr const char* incarnation_key = "incarnation";
constexpr const char* lifeline_key = "lifeline";

}  // namespace

namespace sap_hana {

bool Catalog_Metadata::is_object(int line) const {
  if (metadata_.is_object()) return true;
  D3_EMERGENCY("Unexpected error in " __FILE__ ":%d, metadata_ is not object!\n", line);
  return false;
}

bool Catalog_Metadata::get_text(const char* key, std::string& text, int line) const {
  return is_object(line) && json_spirit::object_get(metadata_.get_obj(), key, text);
}

bool Catalog_Metadata::set_value(const char* key, json_spirit::Value value, int line) {
  if (!is_object(line)) return false;
  metadata_.get_obj()[key] = std::move(value);
  return true;
}

bool Catalog_Metadata::get_backup_databases(std::vector<json_spirit::Value>& databases) const {
  return is_object(__LINE__) && json_spirit::object_get(metadata_.get_obj(), databases_key, databases);
}

bool Catalog_Metadata::set_backup_databases(const json_spirit::Object& database) {
  if (!is_object(__LINE__)) return false;
  json_spirit::Value& databases = metadata_.get_obj()[databases_key];
  if (!databases.is_array()) databases = json_spirit::Array();
  databases.get_array().emplace_back(database);
  return true;
}

bool Catalog_Metadata::get_instance_number(unsigned short& number) const {
  if (!is_object(__LINE__)) return false;
  unsigned long value = 0;
  const bool found = json_spirit::object_get(metadata_.get_obj(), instance_number_key, value);
  number = static_cast<unsigned short>(value);
  return found;
}

bool Catalog_Metadata::set_instance_number(unsigned short number) {
  return set_value(instance_number_key, static_cast<unsigned>(number), __LINE__);
}

bool Catalog_Metadata::get_sid(std::string& sid) const { return get_text(sid_key, sid, __LINE__); }

bool Catalog_Metadata::set_sid(const std::string& sid) { return set_value(sid_key, sid, __LINE__); }

bool Catalog_Metadata::get_instance_name(std::string& name) const {
  return get_text(instance_name_key, name, __LINE__);
}

bool Catalog_Metadata::set_instance_name(const std::string& name) {
  return set_value(instance_name_key, name, __LINE__);
}

bool Catalog_Metadata::get_system_version(std::string& version) const {
  return get_text(system_version_key, version, __LINE__);
}

bool Catalog_Metadata::set_system_version(const std::string& version) {
  return set_value(system_version_key, version, __LINE__);
}

bool Catalog_Metadata::get_extended_attrs(std::string& attributes) const {
  return get_text(extended_attrs_key, attributes, __LINE__);
}

bool Catalog_Metadata::set_extended_attrs(const std::string& attributes) {
  return set_value(extended_attrs_key, attributes, __LINE__);
}

bool Catalog_Metadata::get_incarnation(std::string& incarnation) const {
  return get_text(incarnation_key, incarnation, __LINE__);
}

bool Catalog_Metadata::set_incarnation(const std::string& incarnation) {
  return set_value(incarnation_key, incarnation, __LINE__);
}

bool Catalog_Metadata::get_lifeline(std::string& lifeline) const { return get_text(lifeline_key, lifeline, __LINE__); }

bool Catalog_Metadata::set_lifeline(const std::string& lifeline) { return set_value(lifeline_key, lifeline, __LINE__); }

}  // namespace sap_hana
