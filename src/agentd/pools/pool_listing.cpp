#include "agentd/pools/pool_listing.h"

#include "agent/backupd_client/client_io_ex.h"
#include "agentd/jobs/job_table.h"
#include "platform/log.h"

namespace agentd {

JSON_RPC_Answer list_pool(const json_spirit::Object& params) {
  std::string url;
  json_spirit::Array directories;
  if (!json_spirit::object_get(params, "url", url) || !json_spirit::object_get(params, "directories", directories))
    return refusal_answer(JSON_RPC_E_INVALID_PARAMS, "\"url\" and \"directories\" are needed");
  Client_IO_Options options;
  set_options_by_host(options);
  Client_IO_Ex pool(options);
  if (!pool.connect(url)) return refusal_answer(JSON_RPC_E_SERVER, "the pool cannot be reached: " + pool.error());
  json_spirit::Array rows;
  for (const json_spirit::Value& directory : directories) {
    if (!directory.is_string()) return refusal_answer(JSON_RPC_E_INVALID_PARAMS, "a directory of the pool is no text");
    std::vector<Pool_Entry> entries;
    json_spirit::Array listed;
    // Whatever keeps a directory from being listed keeps its objects from being read: they count as missing.
    if (pool.get_dir(directory.get_str(), entries))
      for (const Pool_Entry& entry : entries)
        listed.emplace_back(
            json_spirit::Object{{"name", entry.name}, {"directory", entry.directory}, {"size", entry.size}});
    rows.emplace_back(json_spirit::Object{{"path", directory.get_str()}, {"entries", std::move(listed)}});
  }
  JSON_RPC_Answer answer;
  answer.ok = true;
  answer.result = json_spirit::Object{{"directories", std::move(rows)}};
  return answer;
}

}  // namespace agentd
