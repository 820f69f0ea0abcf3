#pragma once

#include <string>
#include <vector>

#include "json/value.h"

namespace hdbbackint {

/// A file that the agent leaves for hdbbackint. A file that is not fit for use is an error in words of its kind: what
/// it is, what is wrong, what to do.
struct State_File_Kind {
  const char* name;       ///< "the log backup configuration"
  const char* make_anew;  ///< what to do about one that is damaged

  /// "<name> <path> <what>; <remedy>".
  [[nodiscard]] std::string describe(const std::string& path, const std::string& what, const char* remedy) const;
  /// The JSON object in the file at the documented `path`; false with an error.
  [[nodiscard]] bool read(const std::string& path, json_spirit::Object& document, std::string& error) const;
};

/// The names in a directory of such files; none when it is not there, for then nothing was ever left in it. False with
/// an error when it cannot be read.
[[nodiscard]] bool list_state_files(const std::string& directory, std::vector<std::string>& names, std::string& error);

}  // namespace hdbbackint
