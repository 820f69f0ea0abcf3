#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "catalog/catalog.h"

namespace standin {

/// What Catalog::text tells of one database's backups.
struct Catalog_Image {
  struct Log {
    std::int64_t first = 0, last = 0, segments = 0, until_ms = 0;
  };
  struct File : Catalog_File {
    std::string host;
  };
  struct Entry {
    std::int64_t id = 0;
    std::string type;
    std::int64_t backup_id = 0, start_ms = 0, end_ms = 0;  ///< end: 0 while it ran
    std::string state;
    std::int64_t savepoint = 0, savepoint_ms = 0;
    std::int64_t branch = 0;  ///< the newest recovery before it, 0 for none
    std::string comment, message;
    std::vector<File> files;
    bool is_log = false;  ///< of a volume's log; `log` tells of it
    Log log;
  };
  /// A recovery in place: the log goes on at `fork` of the log of `parent`.
  struct Branch {
    std::int64_t id = 0, parent = 0, fork = 0;
  };
  std::vector<Entry> entries;  ///< as they were begun
  std::vector<Branch> branches;

  [[nodiscard]] const Entry* data_backup(std::int64_t backup_id) const;
};

/// Nothing is read from lines that are none of a catalog; `good` says whether there were any.
Catalog_Image parse_catalog(const std::string& text, bool& good);
/// Puts the image in the place of the database's catalog. What ran when the image was made has failed.
[[nodiscard]] bool replace_catalog(System_State& state, const std::string& database, const Catalog_Image& image);
/// Notes a recovery; later backups belong to it.
[[nodiscard]] bool add_branch(System_State& state, const std::string& database, const Catalog_Image::Branch& branch);

}  // namespace standin
