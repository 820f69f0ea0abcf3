#pragma once

#include <yajl/yajl_gen.h>

#include <string>

/// What a job reads from: its id is the uuid of the resource. Modules derive their own sources from it. Written by the
/// parser that makes it, read-only afterwards.
class Job_Source {
 public:
  virtual ~Job_Source() = default;
  /// Writes the source as one JSON object. 0 on success.
  virtual int generate(yajl_gen generator) const = 0;

  void id(const std::string& id) { id_ = id; }
  [[nodiscard]] const std::string& id() const { return id_; }
  void name(const std::string& name) { name_ = name; }
  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  std::string id_;
  std::string name_;
};
