#pragma once

#include <string>
#include <vector>

#include "json/value.h"
#include "records/metadata.h"

namespace sap_hana {

/// Typed view of the document that travels with each backup set of a HANA system (docs/formats/catalog-metadata.md).
/// Every operation returns false, with an emergency line in the log and its output left alone, when the document is no
/// JSON object. Not shared between threads while one writes.
class Catalog_Metadata : public MTF::Metadata {
 public:
  using MTF::Metadata::Metadata;

  // Getters: true when the key is there with a value of its type; otherwise false and the output left alone.
  [[nodiscard]] bool get_backup_databases(std::vector<json_spirit::Value>& databases) const;
  [[nodiscard]] bool get_sid(std::string& sid) const;
  /// Unlike the others it sets the output to 0 when the key is missing. A larger number is cut to 16 bits.
  [[nodiscard]] bool get_instance_number(unsigned short& number) const;
  [[nodiscard]] bool get_instance_name(std::string& name) const;
  [[nodiscard]] bool get_system_version(std::string& version) const;
  [[nodiscard]] bool get_extended_attrs(std::string& attributes) const;
  [[nodiscard]] bool get_incarnation(std::string& incarnation) const;
  [[nodiscard]] bool get_lifeline(std::string& lifeline) const;

  // Setters: replace an earlier value.
  /// Appends one database to the list; what stands under the key without being a list counts as missing.
  [[nodiscard]] bool set_backup_databases(const json_spirit::Object& database);
  [[nodiscard]] bool set_sid(const std::string& sid);
  [[nodiscard]] bool set_instance_number(unsigned short number);
  [[nodiscard]] bool set_instance_name(const std::string& name);
  [[nodiscard]] bool set_system_version(const std::string& version);
  [[nodiscard]] bool set_extended_attrs(const std::string& attributes);
  [[nodiscard]] bool set_incarnation(const std::string& incarnation);
  [[nodiscard]] bool set_lifeline(const std::string& lifeline);

 private:
  /// `line`: source line of the operation, for the log.
  [[nodiscard]] bool is_object(int line) const;
  [[nodiscard]] bool get_text(const char* key, std::string& text, int line) const;
  [[nodiscard]] bool set_value(const char* key, json_spirit::Value value, int line);
};

}  // namespace sap_hana
