#include "hana/common/directory_permission.h"

#include <sys/stat.h>

#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/log.h"

namespace sap_hana {

bool change_directory_permission(const std::string& path, mode_t mode) {
  std::string directory = path;
  if (!platform::is_directory(path.c_str())) {
    char buffer[platform::path_buffer_bytes];
    if (platform::dirname_r(path.c_str(), buffer, sizeof buffer, '/') == nullptr) {
      D3_ERROR("Failed to set the mode of the directory of '%C': %m\n", platform::cut_for_log(path).c_str());
      return false;
    }
    directory = buffer;
  }
  if (::chmod(platform::File_Root::current().real(directory).c_str(), mode) == 0) return true;
  D3_ERROR("Failed to set the mode of '%C': %m\n", directory.c_str());
  return false;
}

}  // namespace sap_hana
