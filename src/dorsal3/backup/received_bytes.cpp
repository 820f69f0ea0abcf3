#include "dorsal3/backup/received_bytes.h"

#include <algorithm>

#include "dorsal3/server/resources.h"

namespace dorsal3 {

std::uint64_t Received_Bytes::count(Server_Client& server, const std::string& job_act_id) {
  std::vector<json_spirit::Object> jobs;
  Failure failure;
  if (!server.get_rows("/backint/jobs?" + query_pair("job_act_id", job_act_id), jobs, failure)) return last_;
  std::uint64_t sum = 0;
  for (const auto& job : jobs) {
    std::vector<json_spirit::Object> files;
    if (!server.get_rows("/backint/jobs/" + text_member(job, "uuid") + "/files", files, failure)) return last_;
    for (const auto& file : files) sum += number_member(file, "size");
  }
  last_ = std::max(last_, sum);
  return last_;
}

}  // namespace dorsal3
