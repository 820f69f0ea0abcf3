#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hdbbackint/protocol/function.h"

namespace hdbbackint {

/// One object that HANA asks for.
struct Request_Entry {
  enum class Kind {
    pipe,    ///< backup from a named pipe
    file,    ///< backup from a file
    newest,  ///< "#NULL": the newest version of the name, or all when inquiring
    version  ///< "#EBID": exactly one version
  };
  Kind kind = Kind::pipe;
  std::string name;  ///< as HANA gave it; empty where it may be left out
  std::string ebid;
  std::string destination;  ///< restore only; empty: the name itself
  std::optional<std::uint64_t> size_hint;
  [[nodiscard]] bool operator==(const Request_Entry&) const = default;
};

/// A whole input file.
struct Request {
  std::string caller_interface;  ///< "1.04", empty when the file does not say
  std::string caller;            ///< HANA's own name and version
  std::string tool_option;
  std::vector<Request_Entry> entries;  ///< in the order of the file
  std::vector<std::string> malformed;  ///< "line 3: ..." for each keyword line that cannot be read
};

/// Reads an input file for `function`. Lines without a keyword of that function are comments. Lines end with LF or CR
/// LF, the last one also without. Never fails as a whole: what cannot be read stands in `malformed`.
[[nodiscard]] Request parse_request(std::string_view text, Function function);

}  // namespace hdbbackint
