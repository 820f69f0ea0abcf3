#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// A name that HANA takes for a tenant and reads back as it stands. The agent creates no tenant of another name, so
/// that who plans one looks before.
[[nodiscard]] bool is_tenant_name(std::string_view name);

/// The rule, for people: "capital letters, digits ...".
extern const char* const tenant_name_rule;

/// Names of more bytes do not fit the clause by which an executor asks HANA's backup catalog for a database's backups.
inline constexpr std::size_t longest_name_in_catalog_clause = 41;

/// What does not work for a database of such a name, for people; empty for one that fits.
[[nodiscard]] std::string describe_long_name(std::string_view name);
