#pragma once

#include <string>
#include <string_view>

// Where the product's own files lie: the one place that knows. Documented paths, before the file root is put on.

namespace platform::product_paths {

inline constexpr std::string_view install_directory = "/opt/tarvex/dorsal3";
inline constexpr std::string_view state_directory = "/var/opt/tarvex/dorsal3";
inline constexpr std::string_view configuration_directory = "/etc/opt/tarvex/dorsal3";
/// The component that agent and hdbbackint share.
inline constexpr std::string_view agent_component = "agent";
inline constexpr std::string_view backupd_component = "backupd";

/// Replaces "$COMPONENT" in `path`.
[[nodiscard]] std::string expand(std::string_view path, std::string_view component = agent_component);

/// "/opt/tarvex/dorsal3/bin/<program>"
[[nodiscard]] std::string program(std::string_view name);
/// "/opt/tarvex/dorsal3/lib/modules"
[[nodiscard]] std::string module_directory();
/// "/var/opt/tarvex/dorsal3/agent/<name>"
[[nodiscard]] std::string agent_state(std::string_view name);
/// "/var/opt/tarvex/dorsal3/backupd/<name>"
[[nodiscard]] std::string backupd_state(std::string_view name);
/// "/etc/opt/tarvex/dorsal3/<name>"
[[nodiscard]] std::string configuration(std::string_view name);
/// The key with which agent and hdbbackint show themselves to backupd: "/var/opt/tarvex/dorsal3/agent/access_key".
[[nodiscard]] std::string access_key();
/// What hdbbackint says, whoever runs it: "/var/opt/tarvex/dorsal3/agent/hdbbackint.log".
[[nodiscard]] std::string backint_log();
/// Where the processes of one backup share its rate limits: "/var/opt/tarvex/dorsal3/agent/rate".
[[nodiscard]] std::string backint_rate_directory();

}  // namespace platform::product_paths
