#include "dorsal3/command.h"

#include <CLI/CLI.hpp>

#include "dorsal3/server/configuration.h"
#include "dorsal3/server/server_client.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

namespace {

constexpr const char* exit_code_help =
    "Exit codes: 0 good, 1 the work's result is bad, 2 wrong command line, 3 configuration, 4 server or agent not\n"
    "reachable, 5 refused, 6 not found, 7 busy, 8 answer not understood, 9 gap in the logs, 130 interrupted.";

struct Command_Line {
  Configuration_Request configuration;
  std::string output = "text";
};

void declare_common(CLI::App& app, Command_Line& line) {
  app.require_subcommand(1);
  app.footer(exit_code_help);
  app.set_version_flag("--version", "dorsal3 " DORSAL3_VERSION);
  app.add_option("--config", line.configuration.file, "Configuration file");
  app.add_option("--server", line.configuration.server_url, "Address of the backup server, https://host:port");
  app.add_option("--key-file", line.configuration.key_file, "File that holds your key");
  app.add_option("--output", line.output, "Form of the result")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
  app.fallthrough();  // the common options may stand after the verb as well
}

int report(const Failure& failure, bool json, std::ostream& out, std::ostream& error) {
  if (json)
    out << json_spirit::dump_json_pretty(json_spirit::Object{
               {"error", json_spirit::Object{{"code", failure.code}, {"message", failure.message}}}})
        << "\n";
  else
    error << "dorsal3: " << one_line(failure.message) << "\n";
  return failure.exit_code;
}

int run_verb(Verb& verb, const Command_Line& line, const Terminal& terminal, std::ostream& out, std::ostream& error) {
  const bool json = line.output == "json";
  Configuration configuration;
  Failure failure;
  if (!load_configuration(line.configuration, configuration, failure)) return report(failure, json, out, error);
  Server_Client server(configuration);
  Context context{server, terminal, out, error, json};
  const Outcome outcome = verb.run(context);
  if (outcome.failure) return report(*outcome.failure, json, out, error);
  if (json)
    out << json_spirit::dump_json_pretty(outcome.model) << "\n";
  else
    verb.print(outcome.model, out);
  out.flush();
  return out.good() ? outcome.exit_code : exit_failed;
}

}  // namespace

int run_command(const std::vector<std::string>& arguments, const Terminal& terminal, const std::string& home,
                std::ostream& out, std::ostream& error) {
  CLI::App app("Operate backups of database systems through the backup server", "dorsal3");
  Command_Line line;
  line.configuration.home = home;
  declare_common(app, line);
  const auto verbs = make_all_verbs();
  std::vector<CLI::App*> subcommands;
  for (const auto& verb : verbs) subcommands.push_back(verb->declare(app));
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError& problem) {
    // Asking for help or the version is no mistake.
    return app.exit(problem, out, error) == 0 ? exit_ok : exit_usage;
  }
  for (std::size_t i = 0; i < verbs.size(); ++i)
    if (subcommands[i]->parsed()) return run_verb(*verbs[i], line, terminal, out, error);
  return exit_usage;
}

}  // namespace dorsal3
