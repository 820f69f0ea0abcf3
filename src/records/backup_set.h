#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "json/value.h"

/// Where one set lies: a pool and how many bytes it takes there.
struct Backup_Set_Storage {
  std::string pool_uuid;
  std::uint64_t size = 0;
};

/// One stored object of a set.
struct Backup_Piece {
  std::string path;
  std::uint64_t size = 0;
};

/// A backup set on its way to backupd: what every module's sets have in common. Filled by one thread, then committed
/// through Catalog_Operator. Format of the record: docs/formats/backup-set.md.
class Backup_Set {
 public:
  virtual ~Backup_Set() = default;

  std::string uuid;
  std::string module;
  std::string type;
  std::string job_name;
  std::string job_id;
  std::string job_act_id;
  std::string job_uid;
  std::string host_uuid;
  std::string resource_uuid;
  std::string minor_resource_id;
  std::string source_name;
  std::string agent;
  std::time_t creation_time = 0;
  std::time_t begin_time = 0;
  std::time_t end_time = 0;
  std::time_t update_time = 0;
  std::uint64_t total_size = 0;          ///< bytes from the source
  std::uint64_t total_storage_size = 0;  ///< bytes on the pool
  std::uint64_t expiration_id = 0;       ///< all ones: not known yet
  std::uint64_t sequence_id = 0;         ///< all ones: not known yet

  void add_piece(const Backup_Piece& piece) { pieces_.push_back(piece); }
  void add_storage(const Backup_Set_Storage& storage) { storages_.push_back(storage); }
  [[nodiscard]] const std::vector<Backup_Piece>& pieces() const { return pieces_; }
  [[nodiscard]] const std::vector<Backup_Set_Storage>& storages() const { return storages_; }

  /// The record as it is committed. A module's set adds its own keys. The pieces are not repeated in it: the files of
  /// the module's record name the same objects.
  [[nodiscard]] virtual json_spirit::Object to_record() const;

 private:
  std::vector<Backup_Piece> pieces_;
  std::vector<Backup_Set_Storage> storages_;
};

/// UUIDv5 of (resource uuid, database name): the id of one database of a resource. False when the resource uuid is not
/// a uuid; `minor_id` is then left alone.
[[nodiscard]] bool compute_minor_resource_id(const std::string& resource_uuid, const std::string& database,
                                             std::string& minor_id);
