#include "base/layout.h"

#include <filesystem>

#include "base/clock.h"
#include "base/ini.h"
#include "base/text.h"

namespace standin {

namespace {
constexpr const char* base_directory = "/usr/sap/";
constexpr int ports_of_instance_00 = 30000;
constexpr int ports_per_instance = 100;

bool is_instance(const std::string& name) {
  return name.size() == 5 && name.starts_with("HDB") && parse_number(name.substr(3)).has_value();
}

std::string folder_name(const std::string& database) { return "DB_" + replace_all(database, "/", "%2F"); }
}  // namespace

std::string Layout::database_folder(const std::string& database) const {
  if (!multi()) return {};
  return database == "SYSTEMDB" ? database : folder_name(database);
}

std::string Layout::backint_directory(const std::string& database) const {
  const std::string folder = database_folder(database);
  return global_directory() + "/backint" + (folder.empty() ? "" : "/" + folder);
}

std::string Layout::trace_directory(const std::string& database) const {
  const std::string base = host_directory() + "/trace";
  return !multi() || database == "SYSTEMDB" ? base : base + "/" + folder_name(database);
}

std::string Layout::configuration(const std::string& file) const {
  return real(global_directory() + "/custom/config/" + file);
}

std::string Layout::state(const std::string& file) const { return real(instance_directory() + "/standin/" + file); }

std::string Layout::shared(const std::string& file) const { return store.empty() ? state(file) : store + "/" + file; }

int Layout::port(int last_two) const {
  return ports_of_instance_00 + static_cast<int>(parse_number(number).value_or(0)) * ports_per_instance + last_two;
}

bool load_settings(Layout& layout) {
  const Ini settings = Ini::load(layout.state("instance.conf"));
  layout.host = settings.get("instance", "host");
  layout.version = settings.get("instance", "version");
  layout.mode = settings.get("instance", "mode");
  layout.store = settings.get("instance", "store");
  return !layout.host.empty();
}

void live_in_time_of(const Layout& layout) { set_clock_offset_file(layout.state("clock_offset_seconds")); }

std::optional<Layout> find_layout(const std::string& root, const std::string& sid) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(root + base_directory + sid, error)) {
    const std::string name = entry.path().filename();
    if (!is_instance(name)) continue;
    Layout layout{root, sid, name.substr(3), {}, {}, {}};
    if (load_settings(layout)) return layout;
  }
  return std::nullopt;
}

std::optional<Layout> own_layout(const std::string& number) {
  std::error_code error;
  const std::string path = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::size_t base = path.rfind(base_directory);
  if (error || base == std::string::npos) return std::nullopt;
  const std::string root = path.substr(0, base);
  const auto parts = split(std::string_view(path).substr(base + std::string_view(base_directory).size()), '/');
  if (parts.size() > 1 && is_instance(parts[1])) {
    Layout layout{root, parts[0], parts[1].substr(3), {}, {}, {}};
    if (!load_settings(layout)) return std::nullopt;
    live_in_time_of(layout);
    return layout;
  }
  for (const auto& entry : std::filesystem::directory_iterator(root + base_directory, error)) {
    auto layout = find_layout(root, entry.path().filename());
    if (!layout || layout->number != number) continue;
    live_in_time_of(*layout);
    return layout;
  }
  return std::nullopt;
}

}  // namespace standin
