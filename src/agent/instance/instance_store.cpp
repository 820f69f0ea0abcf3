#include "agent/instance/instance_store.h"

#include <cerrno>
#include <utility>

#include "json/value.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"

namespace {

constexpr const char* format_name = "dorsal3-instances";
constexpr int format_version = 1;

/// Secrets live in the accounts, which are encrypted.
json_spirit::Object without_secrets(const json_spirit::Object& options) {
  json_spirit::Object kept;
  for (const auto& [key, value] : options)
    if (value.type() != json_spirit::secure_str_type) kept[key] = value;
  return kept;
}

Instance read_instance(const json_spirit::Object& object) {
  Instance instance;
  instance.type = json_spirit::object_require<std::string>(object, "type");
  instance.name = json_spirit::object_require<std::string>(object, "name");
  instance.uuid = json_spirit::object_require<std::string>(object, "uuid");
  instance.options = json_spirit::object_require<json_spirit::Object>(object, "options");
  instance.logon_options = json_spirit::object_require<json_spirit::Object>(object, "logon_options");
  return instance;
}

}  // namespace

std::string Instance_Store::path() { return platform::product_paths::agent_state("instances.json"); }

bool Instance_Store::parse(std::string_view text, std::vector<Instance>& instances, std::string& error) {
  json_spirit::Value value;
  if (!json_spirit::load_json(text, value, &error)) return false;
  try {
    const json_spirit::Object& object = value.get_obj();
    if (json_spirit::object_require<std::string>(object, "format") != format_name ||
        json_spirit::object_require<int>(object, "version") != format_version) {
      error = "it is of another kind or version";
      return false;
    }
    std::vector<Instance> found;
    for (const json_spirit::Value& row : json_spirit::object_require<json_spirit::Array>(object, "instances"))
      found.push_back(read_instance(row.get_obj()));
    instances = std::move(found);
    return true;
  } catch (const json_spirit::Error& failure) {
    error = failure.what();
    return false;
  }
}

std::string Instance_Store::text(const std::vector<Instance>& instances) {
  json_spirit::Array rows;
  for (const Instance& instance : instances)
    rows.push_back(json_spirit::Object{{"type", instance.type},
                                       {"name", instance.name},
                                       {"uuid", instance.uuid},
                                       {"options", instance.options},
                                       {"logon_options", without_secrets(instance.logon_options)}});
  const json_spirit::Object document{{"format", format_name}, {"version", format_version}, {"instances", rows}};
  return json_spirit::dump_json_pretty(document) + "\n";
}

bool Instance_Store::load(std::vector<Instance>& instances) {
  const std::string file = path();
  std::string content;
  if (!platform::read_file(file, content)) {
    if (errno == ENOENT) {
      instances.clear();
      return true;
    }
    D3_ERROR("Failed to read the instances '%C': %m\n", file.c_str());
    return false;
  }
  std::string error;
  if (parse(content, instances, error)) return true;
  D3_ERROR(
      "The file '%C' is not a file of instances (%C): it is left as it is; move it away and discover the instances "
      "anew\n",
      file.c_str(), platform::cut_for_log(error).c_str());
  return false;
}

bool Instance_Store::save(const std::vector<Instance>& instances) {
  const std::string file = path();
  char directory[platform::path_buffer_bytes];
  if (platform::dirname_r(file.c_str(), directory, sizeof directory, '/') != nullptr &&
      platform::mkdir_p(directory, platform::mode_directory) == 0 &&
      platform::write_file_durably(file, text(instances), platform::mode_private_file))
    return true;
  D3_ERROR("Failed to write the instances '%C': %m\n", file.c_str());
  return false;
}
