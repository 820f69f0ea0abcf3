#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "json/value.h"

namespace agentd {

/// One stored object to read back.
struct Verify_Object {
  std::string ebid;
  std::string name;
  std::string user;  ///< the user id HANA gave to hdbbackint: "<SID>" or "<database>@<SID>"
  std::uint64_t size = 0;
};

struct Verify_Result {
  std::string name;
  bool ok = false;
  std::string message;  ///< why not; empty when ok
  std::uint64_t bytes = 0;
  double seconds = 0;
};

/// Has hdbbackint restore the object into nothing; it compares the checksum taken when the object was stored. Blocks
/// for as long as that takes.
[[nodiscard]] Verify_Result verify_object(const Verify_Object& object);

/// The request "backint.verify": {"objects": [{"ebid", "name", "user", "size"}]}. False with a reason when it is not
/// well formed; nothing is run then.
[[nodiscard]] bool read_verify_request(const json_spirit::Object& params, std::vector<Verify_Object>& objects,
                                       std::string& error);
[[nodiscard]] json_spirit::Object to_json(const Verify_Result& result);

/// The text as a parameter of a Backint line: in double quotes, a quote inside escaped.
[[nodiscard]] std::string backint_quoted(const std::string& text);

}  // namespace agentd
