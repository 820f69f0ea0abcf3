#include "dorsal3/server/pool_choice.h"

#include "dorsal3/server/resources.h"

namespace dorsal3 {

bool choose_pool(Server_Client& server, const std::string& wanted, json_spirit::Object& pool, Failure& failure) {
  std::vector<json_spirit::Object> pools;
  if (!server.get_rows("/pools", pools, failure)) return false;
  std::string known;
  for (const auto& row : pools) {
    const std::string name = text_member(row, "name");
    if (name == wanted || (wanted.empty() && pools.size() == 1)) {
      pool = row;
      return true;
    }
    known += (known.empty() ? "" : ", ") + name;
  }
  failure = {wanted.empty() ? exit_usage : exit_not_found, wanted.empty() ? "usage" : "not_found",
             known.empty()    ? "there is no storage pool yet; make one: dorsal3 pools --add NAME --directory DIRECTORY"
             : wanted.empty() ? "there are several storage pools, choose one with --pool: " + known
                              : "there is no pool \"" + wanted + "\"; there are: " + known};
  return false;
}

}  // namespace dorsal3
