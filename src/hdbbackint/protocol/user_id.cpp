#include "hdbbackint/protocol/user_id.h"

namespace hdbbackint {

bool parse_user_id(std::string_view text, User_Id& user) {
  const std::size_t at = text.rfind('@');
  const std::string_view sid = at == std::string_view::npos ? text : text.substr(at + 1);
  const std::string_view database = at == std::string_view::npos ? std::string_view() : text.substr(0, at);
  if (sid.empty() || (at != std::string_view::npos && database.empty())) return false;
  user.sid = sid;
  user.database = database;
  return true;
}

}  // namespace hdbbackint
