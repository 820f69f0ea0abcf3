#include "agentd/pools/backint_verifier.h"

#include <algorithm>

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/process_runner.h"
#include "platform/product_paths.h"

namespace agentd {

namespace {

constexpr const char* backint_program = "hdbbackint";
constexpr const char* nowhere = "/dev/null";
constexpr std::size_t kept_output_bytes = 64U << 10;

/// Keeps what the tool prints, up to a bound.
class Kept_Output : public platform::Output_Sink {
 public:
  void on_output(platform::Output_Stream stream, const char* data, std::size_t size) override {
    std::string& text = stream == platform::Output_Stream::standard_output ? output : errors;
    text.append(data, std::min(size, kept_output_bytes - std::min(kept_output_bytes, text.size())));
  }
  std::string output;
  std::string errors;
};

bool has_line_end(const std::string& text) { return text.find_first_of("\r\n") != std::string::npos; }

/// True when the tool says of this object that it was restored.
bool says_restored(const std::string& output) {
  std::size_t begin = 0;
  while (begin < output.size()) {
    if (output.compare(begin, 9, "#RESTORED") == 0) return true;
    const std::size_t end = output.find('\n', begin);
    if (end == std::string::npos) return false;
    begin = end + 1;
  }
  return false;
}

std::string first_line(const std::string& text) { return text.substr(0, text.find('\n')); }

std::string why_not(const platform::Exit_Status& status, const Kept_Output& output) {
  if (!output.errors.empty()) return first_line(output.errors);
  if (output.output.find("#NOTFOUND") != std::string::npos) return "the object is not known any more";
  if (status.success()) return "hdbbackint did not say that the object was restored";
  return "hdbbackint " + platform::describe(status);
}

}  // namespace

std::string backint_quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

Verify_Result verify_object(const Verify_Object& object) {
  platform::Process_Spec spec;
  spec.program = platform::product_paths::program(backint_program);
  spec.arguments = {"-f", "restore", "-u", object.user};
  spec.environment = {{"PATH", "/usr/bin:/bin"}};
  spec.input = secure_string("#SOFTWAREID \"backint 1.04\" \"dorsal3-agent\"\n#EBID " + backint_quoted(object.ebid) +
                             " " + backint_quoted(object.name) + " " + backint_quoted(nowhere) + "\n");
  platform::Clock& clock = platform::Clock::current();
  Kept_Output output;
  const auto begin = clock.steady_now();
  const platform::Exit_Status status = platform::Process_Runner::current().run(spec, output);
  Verify_Result result;
  result.name = object.name;
  result.seconds = std::chrono::duration<double>(clock.steady_now() - begin).count();
  result.ok = status.success() && says_restored(output.output);
  if (result.ok) {
    result.bytes = object.size;
  } else {
    result.message = why_not(status, output);
    D3_ERROR("Failed to verify %C, %C\n", platform::cut_for_log(object.name).c_str(),
             platform::cut_for_log(result.message).c_str());
  }
  return result;
}

bool read_verify_request(const json_spirit::Object& params, std::vector<Verify_Object>& objects, std::string& error) {
  json_spirit::Array rows;
  if (!json_spirit::object_get(params, "objects", rows)) {
    error = "\"objects\" is needed, an array";
    return false;
  }
  for (const json_spirit::Value& row : rows) {
    Verify_Object object;
    unsigned long size = 0;
    const bool whole = row.is_object() && json_spirit::object_get(row.get_obj(), "ebid", object.ebid) &&
                       json_spirit::object_get(row.get_obj(), "name", object.name) &&
                       json_spirit::object_get(row.get_obj(), "user", object.user) && !object.user.empty();
    // A line end would begin a line of its own in the tool's input; a leading '-' another option of it.
    if (!whole || has_line_end(object.ebid) || has_line_end(object.name) || object.user.front() == '-') {
      error = "an object needs \"ebid\", \"name\" and \"user\", each on one line";
      return false;
    }
    if (json_spirit::object_get(row.get_obj(), "size", size)) object.size = size;
    objects.push_back(std::move(object));
  }
  return true;
}

json_spirit::Object to_json(const Verify_Result& result) {
  return {{"name", result.name},
          {"ok", result.ok},
          {"message", result.message},
          {"bytes", result.bytes},
          {"seconds", result.seconds}};
}

}  // namespace agentd
