#include "hdbbackint/paths.h"

#include "platform/file_root.h"

namespace hdbbackint {

std::string real_path(const std::string& path) {
  return path == null_device ? path : platform::File_Root::current().real(path);
}

}  // namespace hdbbackint
