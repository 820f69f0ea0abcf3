#pragma once

#include <string>
#include <string_view>

// Names of the files that a restore leaves for hdbbackint: docs/formats/restore-catalog.md. One place for the module,
// which writes them, and for hdbbackint, which reads them. Documented paths, before the file root is put on. Any
// thread.

namespace sap_hana {

/// Where they lie: "<state directory>/catalog".
[[nodiscard]] std::string restore_catalog_directory();

/// Beginning of the name of every catalog configuration file of an origin: "catalog_<origin SID>_<origin database>_".
/// The parts are encoded, so that no other origin's file begins so.
[[nodiscard]] std::string catalog_conf_prefix(std::string_view origin_sid, std::string_view origin_database);

/// The file that tells hdbbackint which catalog a restore reads:
/// "<catalog directory>/catalog_<origin SID>_<origin database>_<target SID>_<target database>.json", each part encoded.
/// False, with a message and `path` left alone, when a part is empty.
[[nodiscard]] bool catalog_conf_file_name(const std::string& origin_sid, const std::string& origin_database,
                                          const std::string& target_sid, const std::string& target_database,
                                          std::string& path);

/// The file that tells hdbbackint how a restore into a database does its input and output:
/// "<catalog directory>/restore_<target SID>_<target database>.json". False as above.
[[nodiscard]] bool restore_ext_conf_file(const std::string& target_sid, const std::string& target_database,
                                         std::string& path);

}  // namespace sap_hana
