#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "agentd/log_backup/log_backup_files.h"
#include "fuzz/small_host.h"
#include "hana/common/ondemand_conf_path.h"
#include "hdbbackint/backup/ondemand_configuration.h"
#include "hdbbackint/settings.h"

// The configuration file of a tenant's log backup, by its two readers: hdbbackint, which stores by it, and the agent,
// which must find the definition of every file that hdbbackint takes.

namespace {

constexpr const char* host_uuid = "0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21";

struct Host {
  fuzz::Small_Host files;
  std::string path;

  Host() {
    fuzz::require(sap_hana::ondemand_conf_path("HDB", "HDB00", "TN1", path));
    files.write(path, "");
  }
};

/// What hdbbackint makes of it before it asks backupd for anything.
void read_settings(const hdbbackint::Ondemand_Configuration& configuration) {
  sap_hana::Backint_Backup_Job_Info job;
  job.location = configuration.location;
  job.host_uuid = host_uuid;
  job.landscape_id = "l";
  job.database = "TN1";
  job.compression = configuration.compression;
  job.extended_attrs["io_ctl"] = configuration.io_ctl;
  hdbbackint::Job_Settings settings;
  std::string error;
  if (!read_job_settings(job, settings, error)) fuzz::require(!error.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Host host;
  host.files.overwrite(host.path, {reinterpret_cast<const char*>(data), size});

  std::vector<agentd::Log_Backup_File> files;
  std::string error;
  fuzz::require(agentd::list_log_backup_files(files, error) && files.size() == 1 && files[0].live);
  fuzz::require(files[0].database == "TN1" && files[0].definition_id.empty() != files[0].problem.empty());

  hdbbackint::Ondemand_Configuration configuration;
  if (!load_ondemand_configuration({"HDB", "TN1"}, host_uuid, configuration, error)) {
    fuzz::require(error.find(host.path) != std::string::npos);
    return 0;
  }
  fuzz::require(files[0].definition_id == configuration.job_definition_uuid && files[0].sid == "HDB");
  fuzz::require(configuration.path == host.path && !configuration.location.empty());
  read_settings(configuration);
  return 0;
}
