#pragma once

#include <yajl/yajl_gen.h>

/// Settings of a job beyond what every definition has. Modules derive their own options from it.
class Job_Options {
 public:
  virtual ~Job_Options() = default;
  /// Writes the options as one JSON object. 0 on success.
  virtual int generate(yajl_gen generator) = 0;
};
