#include "hana/common/backint_preparer.h"

#include <cerrno>

#include "hana/common/hana_paths.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"
#include "scrt/path_t.h"

namespace sap_hana {

Backint_Preparer::Backint_Preparer(const std::string& sid) : sid_(sid) {
  if (sid_.empty()) return;
  source_ = scrt::join_path(platform::product_paths::install_directory, "bin/hdbbackint");
  target_ = scrt::join_path(sap_base_directory, sid_, "SYS/global/hdb/opt/hdbbackint");
}

bool Backint_Preparer::prepare() {
  if (source_.empty() || target_.empty()) {
    D3_ERROR("Source or target is empty\n");
    return false;
  }
  if (!platform::is_regular_file(source_.c_str())) {
    D3_ERROR("Source file %s does not exist\n", source_.c_str());
    return false;
  }
  if (platform::is_symbolic_link(target_.c_str())) return check_link();
  if (errno == ENOENT) return make_link();
  D3_ERROR("Target file %s is exist\n", target_.c_str());
  return false;
}

bool Backint_Preparer::check_link() const {
  char buffer[platform::path_buffer_bytes];
  const ssize_t length = platform::read_link(target_.c_str(), buffer, sizeof buffer - 1);
  const std::string text(buffer, length > 0 ? static_cast<std::size_t>(length) : 0);
  if (length >= 0 && text == source_) return true;
  D3_ERROR("Symbolic link backint '%s' is exists, linking to %s\n", target_.c_str(),
           platform::cut_for_log(text).c_str());
  return false;
}

bool Backint_Preparer::make_link() const {
  char directory[platform::path_buffer_bytes];
  if (platform::dirname_r(target_.c_str(), directory, sizeof directory, '/') != nullptr &&
      platform::mkdir_p(directory, platform::mode_directory) == 0 &&
      platform::make_link(source_.c_str(), target_.c_str()) == 0)
    return true;
  D3_ERROR("Failed to create symbol link, errno = %d\n", errno);
  return false;
}

}  // namespace sap_hana
