#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "hana/common/hdbsql_general_text_handler.h"
#include "hana/common/hdbsql_input.h"
#include "hana/common/hdbsql_output.h"
#include "hana/common/ini_file.h"
#include "hana/common/installation.h"
#include "hana/common/replication_output.h"
#include "hana/common/sap_control_output.h"

// What HANA's tools print and what its files hold, read by every parser; and a statement, which must never reach hdbsql
// in a line of its own.

namespace {

using namespace sap_hana;

void read_table(std::string_view text) {
  HDBSQL_General_Text_Handler handler;
  const std::vector<secure_string> secrets{secure_string("p")};
  HDBSQL_Output output(&handler, secrets);
  const std::size_t half = text.size() / 2;
  output.on_output(platform::Output_Stream::standard_output, text.data(), half);
  output.on_idle();
  output.on_output(platform::Output_Stream::standard_output, text.data() + half, text.size() - half);
  output.on_close(platform::Output_Stream::standard_output);
  output.on_close(platform::Output_Stream::standard_error);
  std::string value;
  for (const auto& [name, index] : handler.get_key()) static_cast<void>(last_value(handler, name, value));
}

void check_joined(std::string_view sql) {
  secure_string input;
  if (!make_hdbsql_input({0, "SYSTEMDB", "U", "p"}, sql, input)) return;
  const std::string_view text = input.view();
  const std::size_t start = text.find('\n') + 1;
  const std::size_t end = text.rfind("\n\\q\n");
  for (std::size_t at = text.find('\n', start); at < end; at = text.find('\n', at + 1))
    if (text[at - 1] != '\\') std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  read_table(text);
  check_joined(text);
  static_cast<void>(Ini_File::parse(text));
  static_cast<void>(host_in_services(text, "HDB", "HDB00"));
  static_cast<void>(version_in_manifest(text));
  static_cast<void>(state_of_process_tree(text, "HDB", "HDB00"));
  Replication_State_Getter::Replication_State state;
  static_cast<void>(parse_replication_state(text, state));
  return 0;
}
