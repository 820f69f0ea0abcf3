#include "hana/common/resource_info_getter.h"

#include <iterator>
#include <utility>

#include "agent/backupd_client/read_first_catalog.h"
#include "platform/log.h"
#include "scrt/http_query_string_builder.h"

namespace sap_hana {

namespace {

constexpr int resource_retries = 10;
constexpr int no_time_limit = -1;

using json_spirit::object_require;

void log_extraction_error(const json_spirit::Error& error) {
  D3_ERROR("Failed to get HANA resource base info, %s\n", platform::cut_for_log(error.what()).c_str());
}

/// Fills one record key by key: what was read before a missing key stays.
void fill(const json_spirit::Object& instance, Resource_Info_Getter::Instance_Info& info) {
  info.instance_mgr_name = object_require<std::string>(instance, "name");
  info.uuid = object_require<std::string>(instance, "uuid");
  info.host_uuid = object_require<std::string>(instance, "host_uuid");
  info.ext_attrs = object_require<json_spirit::Object>(instance, "extended_attrs");
  info.sid = object_require<std::string>(info.ext_attrs, "sid");
  info.instance_name = object_require<std::string>(info.ext_attrs, "instance_name");
  info.instance_number = object_require<unsigned short>(info.ext_attrs, "instance_number");
  info.mdc = object_require<bool>(info.ext_attrs, "multi_container");
}

}  // namespace

bool Resource_Info_Getter::get_info(json_spirit::Object& info) const {
  std::string path = "/q5/r/v2/resources?";
  HTTP_Query_String_Builder_T<std::back_insert_iterator<std::string>> query(std::back_inserter(path));
  query("uuid", resource_uuid_);
  json_spirit::Value value;
  if (read_first_catalog(path.c_str(), value, resource_retries, no_time_limit) && value.is_object()) {
    info = std::move(value.get_obj());
    return true;
  }
  D3_ERROR("Failed to get HANA resource info\n");
  return false;
}

bool Resource_Info_Getter::base_info(std::string& sid, std::string& instance_name, std::string& instance_mgr_name,
                                     ACE_UINT16& instance_number) const {
  json_spirit::Object info;
  if (!get_info(info)) {
    D3_ERROR("Failed to get HANA resource base info\n");
    return false;
  }
  try {
    const auto instances = object_require<json_spirit::Array>(info, "instances");
    if (instances.empty()) {
      D3_ERROR("Lack of instance info\n");
      return false;
    }
    for (const json_spirit::Value& value : instances) {
      if (!value.is_object()) continue;
      const json_spirit::Object& instance = value.get_obj();
      instance_mgr_name = object_require<std::string>(instance, "name");
      const auto attributes = object_require<json_spirit::Object>(instance, "extended_attrs");
      sid = object_require<std::string>(attributes, "sid");
      instance_name = object_require<std::string>(attributes, "instance_name");
      instance_number = object_require<unsigned short>(attributes, "instance_number");
      return true;
    }
  } catch (const json_spirit::Error& error) {
    log_extraction_error(error);
  }
  return false;
}

bool Resource_Info_Getter::get_instances_info(Instances_Info& instances) const {
  json_spirit::Object info;
  if (!get_info(info)) {
    D3_ERROR("Failed to get HANA resource base info\n");
    return false;
  }
  const json_spirit::Value* rows = info.find("instances");
  if (rows == nullptr || !rows->is_array()) {
    D3_ERROR("Failed to get instances info from base info\n");
    return false;
  }
  try {
    for (const json_spirit::Value& value : rows->get_array())
      if (value.is_object()) fill(value.get_obj(), instances.emplace_back());
    return true;
  } catch (const json_spirit::Error& error) {
    log_extraction_error(error);
    return false;
  }
}

}  // namespace sap_hana
