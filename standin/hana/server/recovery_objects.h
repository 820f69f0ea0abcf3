#pragma once

#include <map>
#include <string>
#include <vector>

#include "backint/backint_restore.h"
#include "catalog/catalog_image.h"
#include "server/faults.h"

namespace standin {

/// An object that a recovery reads, from hdbbackint or from a file.
struct Recovery_Object {
  std::string written_as;   ///< documented path that the backup has
  std::string external_id;  ///< empty: the newest of that name
  bool backint = true;
  std::int64_t size = -1;  ///< of the catalog; -1: not known
  // Filled by the reading:
  bool found = false;
  std::string found_id;
};

/// Where a recovery reads from: with USING SOURCE, another database's or system's backups.
struct Recovery_Source {
  Layout system;               ///< with the source's SID
  std::string database;        ///< the source's
  std::string user_id;         ///< what hdbbackint is told
  std::string directory;       ///< documented folder that names without one lie in
  std::string pipe_directory;  ///< folder of all names instead of their own; empty: their own
};

/// Reads objects for one recovery and compares them with what was written, as HANA does with its checksums.
class Recovery_Objects {
 public:
  Recovery_Objects(const Layout& layout, Faults& faults, std::string database, Recovery_Source source,
                   std::function<bool()> canceled);
  /// The error's text; empty when every object was read or not found. `setting` names the parameter file's key.
  std::string read(std::vector<Recovery_Object>& objects, const char* setting, const Block_Taker& taker);
  /// Whether all are there; the error's text.
  std::string check_access(std::vector<Recovery_Object>& objects, const char* setting);

 private:
  Backint_Reader reader_for(const char* setting);
  [[nodiscard]] Backint_Wish wish_for(const Recovery_Object& object) const;
  std::string read_pipes(std::vector<Recovery_Object*>& objects, const std::vector<std::size_t>& places,
                         const char* setting, const Block_Taker& taker);
  std::string read_file_object(Recovery_Object& object, std::size_t place, const Block_Taker& taker);
  std::string verify(const Recovery_Object& object, std::uint64_t bytes, const std::string& sha256) const;
  Layout layout_;
  Faults& faults_;
  std::string database_;
  Recovery_Source source_;
  std::function<bool()> canceled_;
  std::map<std::string, std::string> checksums_;  ///< by path and external id
};

/// The object of a backup's file.
Recovery_Object object_of(const Catalog_Image::File& file);

}  // namespace standin
