#include "hana/common/installation.h"

#include <strings.h>
#include <unistd.h>

#include <cctype>
#include <climits>

#include "hana/common/hana_paths.h"
#include "platform/files.h"

namespace sap_hana {

namespace {

std::string kernel_host_name() {
  char name[HOST_NAME_MAX + 1] = "";
  if (::gethostname(name, sizeof name - 1) != 0) return "localhost";
  return name;
}

bool equal_without_case(std::string_view left, std::string_view right) {
  return left.size() == right.size() && ::strncasecmp(left.data(), right.data(), left.size()) == 0;
}

std::string_view first_label(std::string_view host) { return host.substr(0, host.find('.')); }

/// "<SID>_HDB<NN>_", with which an instance's profile begins.
std::string profile_prefix(std::string_view sid, std::string_view instance_name) {
  return generate_instance_manager_name(sid, instance_name) + "_";
}

std::string host_of_services(const std::string& sid, const std::string& instance_name) {
  std::string text;
  if (!platform::read_file(std::string(sap_services_file), text)) return {};
  return host_in_services(text, sid, instance_name);
}

/// The profile directory is shared by all hosts of a system: with several profiles the kernel's name decides.
std::string host_of_profiles(const std::string& sid, const std::string& instance_name) {
  std::vector<std::string> names;
  if (!platform::list_directory(profile_directory(sid), names)) return {};
  const std::string prefix = profile_prefix(sid, instance_name);
  const std::string kernel = kernel_host_name();
  std::vector<std::string> hosts;
  for (const std::string& name : names) {
    // Old versions of a profile are kept beside it with a suffix.
    if (!name.starts_with(prefix) || name.size() == prefix.size() || name.find('.') != std::string::npos) continue;
    hosts.push_back(name.substr(prefix.size()));
    if (same_host(hosts.back(), kernel)) return hosts.back();
  }
  return hosts.size() == 1 ? hosts.front() : std::string();
}

}  // namespace

bool same_host(std::string_view left, std::string_view right) {
  const bool both_whole = left.find('.') != std::string_view::npos && right.find('.') != std::string_view::npos;
  return both_whole ? equal_without_case(left, right) : equal_without_case(first_label(left), first_label(right));
}

bool is_installed(const std::string& sid, const std::string& instance_name) {
  return is_sid(sid) && is_instance_name(instance_name) &&
         platform::is_directory(executable_directory(sid, instance_name).c_str());
}

std::vector<std::string> installed_instances(const std::string& sid) {
  std::vector<std::string> found;
  std::vector<std::string> names;
  if (!is_sid(sid) || !platform::list_directory(system_directory(sid), names)) return found;
  for (const std::string& name : names)
    if (is_installed(sid, name)) found.push_back(name);
  return found;
}

std::string host_in_services(std::string_view text, std::string_view sid, std::string_view instance_name) {
  const std::string wanted = "/" + profile_prefix(sid, instance_name);
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    const std::size_t argument = line.find("pf=");
    if (line.starts_with('#') || argument == std::string_view::npos) continue;
    const std::string_view rest = line.substr(argument);
    const std::string_view profile = rest.substr(0, rest.find_first_of(" \t\r;\"'"));
    const std::size_t name = profile.find(wanted);
    if (name == std::string_view::npos) continue;
    const std::string_view host = profile.substr(name + wanted.size());
    if (!host.empty() && host.find('/') == std::string_view::npos) return std::string(host);
  }
  return {};
}

std::string local_host_name(const std::string& sid, const std::string& instance_name) {
  if (std::string host = host_of_services(sid, instance_name); !host.empty()) return host;
  if (std::string host = host_of_profiles(sid, instance_name); !host.empty()) return host;
  return kernel_host_name();
}

std::string version_in_manifest(std::string_view text) {
  constexpr std::string_view key = "fullversion:";
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (!line.starts_with(key)) continue;
    line.remove_prefix(key.size());
    const std::size_t first = line.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    line.remove_prefix(first);
    return std::string(line.substr(0, line.find_first_not_of("0123456789.")));
  }
  return {};
}

std::vector<std::string> host_folders(const std::string& sid, const std::string& instance_name) {
  std::vector<std::string> found;
  std::vector<std::string> names;
  if (!platform::list_directory(instance_directory(sid, instance_name), names)) return found;
  for (const std::string& name : names)
    if (platform::is_directory(trace_directory(sid, instance_name, name).c_str())) found.push_back(name);
  return found;
}

}  // namespace sap_hana
