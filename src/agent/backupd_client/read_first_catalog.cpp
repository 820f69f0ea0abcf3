#include "agent/backupd_client/read_first_catalog.h"

#include <algorithm>
#include <utility>

#include "agent/backupd_client/common_http_session_factory.h"
#include "agent/backupd_client/json_http_session.h"
#include "platform/log.h"

bool read_first_catalog(const char* path, json_spirit::Value& value, int retries, int timeout) {
  value = json_spirit::Value();
  HTTP_Session_var session = Common_HTTP_Session_Factory::configured();
  if (!session) return false;

  const int repetitions = std::max(retries, 1) - 1;
  json_spirit::Value reply;
  if (!JSON_HTTP_Session(session, repetitions, timeout).get(path, reply)) return false;
  if (!reply.is_object()) {
    D3_ERROR("GET %C%C: the answer is of type %C, expected object\n", session->url().c_str(),
             platform::cut_for_log(path).c_str(), json_spirit::type_name(reply.type()));
    return false;
  }
  json_spirit::Value* const rows = reply.get_obj().find("rows");
  if (rows == nullptr) {
    value = std::move(reply);
    return true;
  }
  if (!rows->is_array()) {
    D3_ERROR("GET %C%C: \"rows\" is of type %C, expected array\n", session->url().c_str(),
             platform::cut_for_log(path).c_str(), json_spirit::type_name(rows->type()));
    return false;
  }
  if (!rows->get_array().empty()) value = std::move(rows->get_array().front());
  return true;
}
