#pragma once

#include <string>

#include "base/layout.h"

namespace standin {

/// One line of backup.log: component BACKUP or RECOVERY, level INFO or ERROR.
bool append_backup_log(const Layout& layout, const std::string& database, std::int64_t at_ms, std::int64_t backup_id,
                       const std::string& level, const std::string& component, const std::string& text);
/// A block of backint.log.
bool append_backint_log(const Layout& layout, const std::string& database, const std::string& title,
                        const std::string& body);

}  // namespace standin
