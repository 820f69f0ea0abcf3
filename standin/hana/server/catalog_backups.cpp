#include "server/catalog_backups.h"

#include "base/text.h"
#include "catalog/catalog.h"
#include "server/configuration.h"
#include "server/log_stream.h"

namespace standin {

std::mutex& Catalog_Backups::turn_of(const std::string& database) {
  const std::lock_guard guard(mutex_);
  auto& turn = turns_[database];
  if (!turn) turn = std::make_unique<std::mutex>();
  return *turn;
}

void Catalog_Backups::write(System_State& state, const std::string& database, std::optional<std::int64_t> given) {
  const Layout& layout = state.layout();
  const std::lock_guard turn(turn_of(database));
  const std::int64_t id = given ? *given : next_id_();
  const bool backint = is_true(setting_of(layout, database, "backup", "catalog_backup_using_backint", "false"));
  Catalog catalog(state);
  const std::int64_t entry = catalog.begin(database, log_backup, id, "", 0, id);
  Log_Stream stream;
  stream.database = database;
  stream.service = "catalog";
  stream.backup_id = id;
  stream.header = "kind=CATALOG\n";
  stream.text = catalog.text(database);
  stream.backint = backint;
  stream.parameter_file = setting_of(layout, database, "backup", "catalog_backup_parameter_file", "");
  stream.name = backint ? layout.backint_directory(database) + "/log_backup_0_0_0_0"
                        : log_backup_folder(layout, database, "basepath_catalogbackup") + "/log_backup_0_0_0_0." +
                              std::to_string(id);
  Backint_Part part;
  const std::string error = write_log_stream(
      state, stream, [] { return false; }, part);
  catalog.add_file(database, entry, id,
                   {0, "catalog", "", static_cast<std::int64_t>(part.result.bytes), part.name,
                    backint ? "backint" : "file", part.external_id, 0});
  catalog.finish(entry, error.empty() ? "successful" : "failed", error.empty() ? "<ok>" : error);
}

}  // namespace standin
