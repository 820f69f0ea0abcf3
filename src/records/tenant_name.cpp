#include "records/tenant_name.h"

#include <algorithm>

namespace {

constexpr std::size_t longest_name_bytes = 127;

bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool is_name_byte(char c) { return (c >= 'A' && c <= 'Z') || is_digit(c) || c == '_'; }

}  // namespace

const char* const tenant_name_rule =
    "capital letters, digits and underscores, not beginning with a digit, at most 127 bytes";

bool is_tenant_name(std::string_view name) {
  return !name.empty() && !is_digit(name.front()) && name.size() <= longest_name_bytes &&
         std::all_of(name.begin(), name.end(), is_name_byte);
}

std::string describe_long_name(std::string_view name) {
  if (name.size() <= longest_name_in_catalog_clause) return {};
  return "the name " + std::string(name) + " is longer than " + std::to_string(longest_name_in_catalog_clause) +
         " bytes, and HANA's backup catalog is not asked for such names: an incremental or differential backup of it "
         "becomes a full one, a stop does not find its backup, its log backups cannot be recorded";
}
