#include "catalog/backup_log.h"

#include <unistd.h>

#include <cinttypes>
#include <cstdio>

#include "base/clock.h"
#include "base/files.h"

namespace standin {

bool append_backup_log(const Layout& layout, const std::string& database, std::int64_t at_ms, std::int64_t backup_id,
                       const std::string& level, const std::string& component, const std::string& text) {
  char middle[128];
  std::snprintf(middle, sizeof middle, "  P%07d      %" PRIx64 " %-7s %-8s ", static_cast<int>(::getpid()),
                static_cast<std::uint64_t>(backup_id), level.c_str(), component.c_str());
  const std::string directory = layout.real(layout.trace_directory(database));
  return make_directories(directory) &&
         append_file(directory + "/backup.log", log_time_text(at_ms) + middle + text + "\n");
}

bool append_backint_log(const Layout& layout, const std::string& database, const std::string& title,
                        const std::string& body) {
  const std::int64_t now = now_ms();
  char fraction[16];
  std::snprintf(fraction, sizeof fraction, ".%03d ", static_cast<int>(now % 1000));
  const std::string directory = layout.real(layout.trace_directory(database));
  return make_directories(directory) &&
         append_file(directory + "/backint.log", local_time_text(now, "%Y-%m-%d %H:%M:%S") + fraction + title + body);
}

}  // namespace standin
