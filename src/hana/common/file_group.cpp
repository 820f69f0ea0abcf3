#include "hana/common/file_group.h"

#include <sys/stat.h>
#include <unistd.h>

#include "hana/common/hana_paths.h"
#include "platform/file_root.h"
#include "platform/log.h"
#include "platform/users.h"

namespace sap_hana {

bool change_file_group_to_sap(const char* path, const char* group) {
  if (path == nullptr || *path == '\0') {
    D3_ERROR("No file to give to SAP's group: its path is empty\n");
    return false;
  }
  const char* name = group == nullptr ? sap_group : group;
  gid_t gid = 0;
  if (!platform::find_group(name, gid)) {
    D3_ERROR("Failed to give '%C' to the group '%C': there is no such group\n", path, name);
    return false;
  }
  const std::string real = platform::File_Root::current().real(path);
  struct stat status {};
  const bool belongs = ::stat(real.c_str(), &status) == 0 && status.st_gid == gid;
  if (belongs || ::chown(real.c_str(), static_cast<uid_t>(-1), gid) == 0) return true;
  D3_ERROR("Failed to give '%C' to the group '%C': %m\n", path, name);
  return false;
}

}  // namespace sap_hana
