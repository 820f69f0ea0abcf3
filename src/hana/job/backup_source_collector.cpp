#include "hana/job/backup_source_collector.h"

#include <string_view>
#include <utility>
#include <vector>

#include "hana/common/hana_paths.h"
#include "hana/common/system_control.h"
#include "job/default_backup_job_source.h"
#include "net/uri.h"
#include "platform/log.h"

namespace {

constexpr std::string_view resource_kind = "hana";

/// Segments of an entry: the kind, the instance, and the database where one is named.
constexpr std::size_t instance_segment = 1;
constexpr std::size_t database_segment = 2;

}  // namespace

namespace sap_hana {

bool Backup_Source_Collector::collect(const Default_Backup_Job_Source& source) {
  const bool multi_container = System_Controller(sid_).is_multi_container();
  for (const std::string& entry : source.entries()) {
    if (!entry.starts_with(resource_kind)) {
      D3_ERROR("Failed to collect %s for HANA\n", platform::cut_for_log(entry).c_str());
      return false;
    }
    collect_entry(entry, multi_container);
  }
  return true;
}

void Backup_Source_Collector::collect_entry(const std::string& entry, bool multi_container) {
  URI uri;
  uri.path(entry, true);
  std::vector<std::string> segments;
  uri.path_segments(segments, true);
  if (segments.size() <= instance_segment) {
    D3_ERROR("Failed to handle source entry %s\n", platform::cut_for_log(entry).c_str());
    return;
  }
  Database_Info info;
  info.instance = segments[instance_segment];
  if (segments.size() == database_segment + 1) {
    info.database = segments[database_segment];
    info.systemdb = !multi_container || info.database == system_database_name;
  }
  sources_.push_back(std::move(info));
}

}  // namespace sap_hana
