#include "agent/backupd_client/catalog_operator.h"

#include <algorithm>
#include <iterator>

#include "agent/backupd_client/common_http_session_factory.h"
#include "agent/backupd_client/json_http_session.h"
#include "platform/log.h"
#include "scrt/http_encode.h"

namespace {

constexpr const char* view_path = "/q5/r/v2/catalog/";
constexpr const char* sets_path = "/q5/r/v2/sets";

void append_segment(std::string& path, const std::string& name) {
  http_encode_string_i(name.c_str(), http_encode_slash, std::back_inserter(path));
}

/// Sends `body` and takes an object for an answer.
bool post(const std::string& path, const json_spirit::Value& body, int retries, int seconds,
          json_spirit::Value& reply) {
  const JSON_HTTP_Session session(Common_HTTP_Session_Factory::configured(), retries, seconds);
  if (!session || !session.post(path, body, reply)) return false;
  if (reply.is_object()) return true;
  D3_ERROR("POST %C%C: the answer is of type %C, expected object\n", session.session()->url().c_str(), path.c_str(),
           json_spirit::type_name(reply.type()));
  return false;
}

}  // namespace

Catalog_Operator::Catalog_Operator(int retries, int retry_seconds)
    : retries_(retries < 0 ? JSON_HTTP_Session::DEFAULT_RETRYS : retries),
      retry_seconds_(std::clamp(retry_seconds, 0, max_retry_seconds)) {}

bool Catalog_Operator::get_view(const std::string& module, const std::string& view, const json_spirit::Object& params,
                                json_spirit::Value& result) const {
  std::string path = view_path;
  append_segment(path, module);
  path += '/';
  append_segment(path, view);
  return post(path, json_spirit::Object{{"params", params}}, retries_, retry_seconds_, result);
}

bool Catalog_Operator::commit(const Backup_Set& set, bool) const {
  json_spirit::Value stored;
  return post(sets_path, set.to_record(), retries_, retry_seconds_, stored);
}
