#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/small_host.h"
#include "hana/common/restore_conf_path.h"
#include "hdbbackint/restore/staged_catalog.h"
#include "records/rate_limits.h"

// The file that a restore leaves for hdbbackint, under the name of the restore of TN1 into TN2. Whoever looks for it
// finds the same, a file that is no good is named, and nothing of one is kept that another origin or target could mean.

namespace {

using namespace hdbbackint;
using Search = Staged_Catalog::Search;

constexpr const char* object_of_origin = "/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/log_backup_0_0_0_0";

struct Host {
  fuzz::Small_Host files;
  const User_Id origin{"HDB", "TN1"};
  const User_Id target{"HDB", "TN2"};
  std::string path;

  Host() {
    fuzz::require(sap_hana::catalog_conf_file_name(origin.sid, origin.database, target.sid, target.database, path));
    files.write(path, "");
  }
};

void check_found(const Host& host, const Staged_Catalog& catalog) {
  fuzz::require(catalog.path == host.path && catalog.is_for(host.target) && !catalog.contested);
  fuzz::require(!catalog.location.empty() && !catalog.storage_path.empty() && !catalog.extern_backup_id.empty());
  static_cast<void>(catalog.max_seconds_retry());
  Rate_Limits limits;
  std::string error;
  if (!limits.from_json_in_object(catalog.io_ctl, &error)) fuzz::require(!error.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Host host;
  host.files.overwrite(host.path, {reinterpret_cast<const char*>(data), size});
  Staged_Catalog catalog;
  std::string error;
  const Search search = Staged_Catalog::load(object_of_origin, host.target, catalog, error);
  fuzz::require(search != Search::none);
  if (search == Search::found)
    check_found(host, catalog);
  else
    fuzz::require(error.find(host.path) != std::string::npos);
  Staged_Catalog other;
  fuzz::require(Staged_Catalog::load_newest(object_of_origin, other, error) == search);
  fuzz::require(Staged_Catalog::load_exact(host.origin, host.target, other, error) == search);
  fuzz::require(other.extern_backup_id == catalog.extern_backup_id);
  return 0;
}
