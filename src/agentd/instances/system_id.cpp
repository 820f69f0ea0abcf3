#include "agentd/instances/system_id.h"

#include <algorithm>

namespace agentd {

namespace {

constexpr std::size_t sid_length = 3;

}  // namespace

bool is_sid(const std::string& sid) {
  return sid.size() == sid_length &&
         std::all_of(sid.begin(), sid.end(), [](char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); });
}

}  // namespace agentd
