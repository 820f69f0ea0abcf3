#include <CLI/CLI.hpp>

#include "dorsal3/jobs/prefix_search.h"
#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

namespace {

/// Has every object of a set read back from its pool and compared with the checksum taken when it was stored.
class Verify_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub = app.add_subcommand("verify", "Read every object of a backup set back and check it");
    sub->add_option("SET", set_, "uuid of the set, or its beginning, as info shows it")->required();
    return sub;
  }

  Outcome run(Context& context) override {
    json_spirit::Object answer;
    Failure failure;
    if (!find_set(context.server, set_, set_, failure) ||
        !context.server.post("/verify", {{"set", set_}}, answer, failure, Server_Client::verify_timeout))
      return Outcome::failed(std::move(failure));
    const auto objects = object_rows(answer, "objects");
    const bool ok = flag_member(answer, "ok") && !objects.empty();
    Outcome outcome;
    outcome.exit_code = ok ? exit_ok : exit_failed;
    outcome.model = {{"set", set_}, {"objects", to_array(objects)}, {"ok", ok}};
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    std::uint64_t total = 0;
    const auto objects = object_rows(model, "objects");
    for (const auto& object : objects) {
      const std::uint64_t size = number_member(object, "size");
      total += size;
      out << (flag_member(object, "ok") ? "ok      " : "FAILED  ") << one_line(text_member(object, "name")) << "  "
          << format_bytes(size);
      const std::string message = one_line(text_member(object, "message"));
      if (!message.empty()) out << "  " << message;
      out << "\n";
    }
    if (objects.empty())
      out << "The set has no object: nothing was checked.\n";
    else
      out << objects.size() << " objects, " << format_bytes(total)
          << (flag_member(model, "ok") ? ": all good.\n" : ": NOT all good, see above.\n");
  }

 private:
  std::string set_;
};

}  // namespace

std::unique_ptr<Verb> make_verify_verb() { return std::make_unique<Verify_Verb>(); }

}  // namespace dorsal3
