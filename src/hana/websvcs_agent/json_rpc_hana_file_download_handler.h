#pragma once

#include <string>

#include "agent/api/json_rpc_handler.h"

/// Leaves the description of a restore on this host: "hana.file.download" with {"origin_sid", "origin_database",
/// "target_sid", "target_database", "extended_attrs"?} and whatever else hdbbackint needs. The whole of it goes into
/// the catalog configuration file, "extended_attrs" into the restore configuration file too
/// (docs/formats/restore-catalog.md). Keeps nothing between calls; any thread. Of two requests for the same names the
/// later one wins.
class JSON_RPC_HANA_File_Download_Handler : public JSON_RPC_Handler {
 public:
  int handle_object(std::weak_ptr<JSON_RPC_Channel> channel, std::shared_ptr<JSON_RPC_Object> object) override;
  ~JSON_RPC_HANA_File_Download_Handler() override;

  /// Fetches one file from the pool at the url `address`. False, with a message, when it could not be had; nothing
  /// half-written is then left.
  [[nodiscard]] bool download(const std::string& address, const std::string& remote_path,
                              const std::string& local_path);
};
