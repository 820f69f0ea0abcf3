#include "agent/backupd_client/backint_workplace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"
#include "platform/unique_descriptor.h"
#include "platform/users.h"

namespace {

constexpr const char* sap_group = "sapsys";
constexpr mode_t log_mode = 0660;
constexpr mode_t rate_directory_mode = 0770;

/// Without the right to give files away the group stays the agent's own.
bool share(int fd, mode_t mode) {
  gid_t group = 0;
  if (platform::find_group(sap_group, group) && ::fchown(fd, static_cast<uid_t>(-1), group) != 0 && errno != EPERM)
    return false;
  return ::fchmod(fd, mode) == 0;
}

/// Opened, so that what is shared is what was looked at.
bool open_and_share(const std::string& path, int flags, mode_t mode) {
  const platform::Unique_Descriptor file(
      ::open(platform::File_Root::current().real(path).c_str(), flags | O_CLOEXEC | O_NOFOLLOW, mode));
  return file.valid() && share(file.get(), mode);
}

}  // namespace

void prepare_backint_workplace() {
  const std::string log = platform::product_paths::backint_log();
  if (!open_and_share(log, O_WRONLY | O_APPEND | O_CREAT, log_mode))
    D3_WARNING("Failed to make %C for HANA's users, %m; hdbbackint may run without a log\n", log.c_str());
  const std::string rates = platform::product_paths::backint_rate_directory();
  if (platform::mkdir_p(rates.c_str(), rate_directory_mode) != 0 ||
      !open_and_share(rates, O_RDONLY | O_DIRECTORY, rate_directory_mode))
    D3_WARNING("Failed to make %C for HANA's users, %m; rate limits may hold for each hdbbackint by itself\n",
               rates.c_str());
}
