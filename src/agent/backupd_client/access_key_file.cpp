#include "agent/backupd_client/access_key_file.h"

#include <sys/stat.h>

#include <string>

#include "agent/backupd_client/agent_configuration.h"
#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"
#include "platform/users.h"

namespace {

constexpr const char* sap_group = "sapsys";
constexpr mode_t permission_bits = 07777;

/// True when the file holds the key already and only those may read it who should.
bool is_current(const std::string& path, const secure_string& key, const gid_t* group) {
  struct stat status {};
  if (::stat(platform::File_Root::current().real(path).c_str(), &status) != 0) return false;
  if ((status.st_mode & permission_bits) != platform::mode_sap_file) return false;
  if (group != nullptr && status.st_gid != *group) return false;
  std::string content;
  const bool same = platform::read_file(path, content) && secure_string(content) == key;
  platform::wipe_memory(content.data(), content.size());
  return same;
}

}  // namespace

bool generate_access_key_file() {
  Agent_Configuration configuration;
  secure_string key;
  std::string error;
  if (!Agent_Configuration::load(configuration, error) || !configuration.load_configured_key(key, error)) {
    D3_ERROR("Failed to generate the access key file: %C\n", platform::cut_for_log(error).c_str());
    return false;
  }
  const std::string path = platform::product_paths::access_key();
  gid_t gid = 0;
  const bool has_group = platform::find_group(sap_group, gid);
  if (is_current(path, key, has_group ? &gid : nullptr)) return true;

  const std::string directory = path.substr(0, path.rfind('/'));
  if (platform::mkdir_p(directory.c_str(), platform::mode_directory) != 0) {
    D3_ERROR("Failed to make directory %C, %m\n", directory.c_str());
    return false;
  }
  if (!platform::write_file_durably(path, key.view(), platform::mode_sap_file, has_group ? sap_group : nullptr)) {
    D3_ERROR("Failed to write access key file %C, %m\n", path.c_str());
    return false;
  }
  return true;
}
