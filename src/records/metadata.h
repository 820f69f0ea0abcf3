#pragma once

#include "json/value.h"

namespace MTF {

/// The document kept with a backup set. Starts as an empty object.
class Metadata {
 public:
  Metadata() : metadata_(json_spirit::Object()) {}
  explicit Metadata(json_spirit::Value document) : metadata_(std::move(document)) {}
  virtual ~Metadata() = default;

  [[nodiscard]] const json_spirit::Value& document() const { return metadata_; }

 protected:
  json_spirit::Value metadata_;
};

}  // namespace MTF
