#include "platform/product_paths.h"

namespace platform::product_paths {

namespace {

std::string join(std::string_view first, std::string_view second) {
  std::string path(first);
  path += '/';
  path += second;
  return path;
}

}  // namespace

std::string expand(std::string_view path, std::string_view component) {
  constexpr std::string_view name = "$COMPONENT";
  std::string expanded(path);
  const std::size_t at = expanded.find(name);
  if (at != std::string::npos) expanded.replace(at, name.size(), component);
  return expanded;
}

std::string program(std::string_view name) { return join(join(install_directory, "bin"), name); }
std::string module_directory() { return join(install_directory, "lib/modules"); }
std::string agent_state(std::string_view name) { return join(join(state_directory, agent_component), name); }
std::string backupd_state(std::string_view name) { return join(join(state_directory, backupd_component), name); }
std::string configuration(std::string_view name) { return join(configuration_directory, name); }
std::string access_key() { return agent_state("access_key"); }
std::string backint_log() { return agent_state("hdbbackint.log"); }
std::string backint_rate_directory() { return agent_state("rate"); }

}  // namespace platform::product_paths
