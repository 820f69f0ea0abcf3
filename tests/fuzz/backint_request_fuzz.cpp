#include <cstdint>
#include <cstdlib>
#include <string>

#include "hdbbackint/protocol/line_tokens.h"
#include "hdbbackint/protocol/request.h"
#include "hdbbackint/protocol/tool_option.h"

// Whatever the bytes: no crash, and every parameter that was read is read back from how it would be written.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace hdbbackint;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const Function function : {Function::backup, Function::restore, Function::inquire, Function::remove}) {
    const Request request = parse_request(text, function);
    (void)tool_option_value(request.tool_option, "job_uuid");
    for (const Request_Entry& entry : request.entries) {
      std::vector<std::string> tokens;
      const bool ambiguous = entry.name.ends_with('\\') &&
                             (entry.name.front() == '"' || entry.name.find_first_of(" \t") != std::string::npos);
      if (entry.name.empty() || ambiguous) continue;
      if (!split_line(quote_parameter(entry.name), tokens) || tokens.size() != 1 || tokens[0] != entry.name)
        std::abort();
    }
  }
  return 0;
}
