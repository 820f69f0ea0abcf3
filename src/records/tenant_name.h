#pragma once

#include <string_view>

/// A name that HANA takes for a tenant and reads back as it stands. The agent creates no tenant of another name, so
/// that who plans one looks before.
[[nodiscard]] bool is_tenant_name(std::string_view name);

/// The rule, for people: "capital letters, digits ...".
extern const char* const tenant_name_rule;
