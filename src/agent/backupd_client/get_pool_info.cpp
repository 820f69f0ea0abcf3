#include "agent/backupd_client/get_pool_info.h"

#include <iterator>

#include "agent/backupd_client/common_http_session_factory.h"
#include "agent/backupd_client/json_http_session.h"
#include "platform/log.h"
#include "scrt/http_query_string_builder.h"

using json_spirit::Object;
using json_spirit::object_get;

namespace {

constexpr const char* pools_path = "/q5/r/v2/pools?";
constexpr const char* streams_path = "/q5/pools/";

void read_texts(const Object& row, const char* key, Ext_Attrs_T& texts) {
  Object members;
  if (!object_get(row, key, members)) return;
  for (const auto& [name, value] : members)
    if (value.is_string()) texts[name] = value.get_str();
}

void read_addresses(const Object& row, Node_Addrs_T& addresses) {
  json_spirit::Array items;
  if (!object_get(row, "node_addrs", items)) return;
  for (const auto& item : items)
    if (item.is_string()) addresses.push_back(item.get_str());
}

Pool_Info read_pool(const Object& row, const std::string& server_url) {
  Pool_Info info;
  object_get(row, "uuid", info.uuid);
  object_get(row, "name", info.name);
  object_get(row, "host_uuid", info.host_uuid);
  object_get(row, "url", info.url);
  object_get(row, "device_exists", info.device_exists);
  object_get(row, "multidevice", info.multidevice);
  object_get(row, "server_side_encryption", info.server_side_encryption);
  object_get(row, "preferred_source_address", info.preferred_source_address);
  object_get(row, "dedup_backend_type", info.dedup_backend_type);
  object_get(row, "s3_enabled", info.s3_enabled);
  read_texts(row, "ext_attrs", info.ext_attrs);
  read_texts(row, "default_s3", info.default_s3);
  read_addresses(row, info.node_addrs);
  if (info.url.empty()) info.url = server_url + streams_path + info.uuid;
  return info;
}

/// The pool's row in the answer; null when it is not there.
const Object* find_row(const json_spirit::Value& reply, const std::string& uuid) {
  if (!reply.is_object()) return nullptr;
  const json_spirit::Value* const rows = reply.get_obj().find("rows");
  if (rows == nullptr || !rows->is_array()) return nullptr;
  for (const auto& row : rows->get_array()) {
    std::string found;
    if (row.is_object() && object_get(row.get_obj(), "uuid", found) && found == uuid) return &row.get_obj();
  }
  return nullptr;
}

}  // namespace

bool get_pool_info(const std::string& uuid, const char* name, Pool_Info& info, bool, int, const char*, bool,
                   const char*, const char*, bool) {
  const JSON_HTTP_Session session(Common_HTTP_Session_Factory::configured());
  if (!session) return false;

  std::string path = pools_path;
  HTTP_Query_String_Builder_T builder(std::back_inserter(path));
  builder("uuid", uuid, true, true);
  if (name != nullptr) builder("name", name, true, true);
  json_spirit::Value reply;
  if (!session.get(path, reply)) return false;

  const Object* const row = find_row(reply, uuid);
  if (row == nullptr) {
    D3_ERROR("backupd knows no pool %C; check the target of the job definition\n", platform::cut_for_log(uuid).c_str());
    return false;
  }
  info = read_pool(*row, session.session()->url());
  return true;
}
