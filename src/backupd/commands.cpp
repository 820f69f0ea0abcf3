#include "backupd/commands.h"

#include <csignal>
#include <ostream>
#include <vector>

#include <CLI/CLI.hpp>

#include "backupd/configuration.h"
#include "backupd/http/key_store.h"
#include "backupd/pools/pool_storage.h"
#include "backupd/pools/pool_store.h"
#include "backupd/server.h"
#include "platform/log.h"

namespace backupd {

namespace {

enum Exit_Code { exit_ok = 0, exit_failed = 1, exit_configuration = 2 };

constexpr char program_name[] = "dorsal3-backupd";

/// What the command line asks for.
struct Command {
  std::string role;
  std::string host;
  std::int64_t key_id = 0;
  Pool pool;
};

/// What a command works with.
struct Context {
  const Configuration& configuration;
  Database& database;
  std::ostream& out;
  std::ostream& errors;
};

int refused(std::ostream& errors, const std::string& message) {
  errors << program_name << ": " << message << "\n";
  return exit_failed;
}

int serve(const Configuration& configuration, std::ostream& errors) {
  // Blocked before any thread is made, so that only this one takes them.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  (void)::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  (void)std::signal(SIGPIPE, SIG_IGN);
  platform::open_program_log(program_name, configuration.log_file);
  Server server(configuration);
  std::string error;
  if (!server.start(error)) return refused(errors, error);
  int signal = 0;
  while (::sigwait(&signals, &signal) != 0) {
  }
  server.stop();
  return exit_ok;
}

int add_key(const Command& command, Context& context) {
  secure_string key;
  const Outcome outcome = Key_Store(context.database).add(role_from_name(command.role), command.host, key);
  if (!outcome.ok()) return refused(context.errors, outcome.message);
  context.out << key.view() << "\n";
  return exit_ok;
}

int list_keys_of(Context& context) {
  std::vector<Access_Key> keys;
  if (!Key_Store(context.database).list(keys)) return refused(context.errors, "the keys cannot be read; see the log");
  for (const Access_Key& key : keys)
    context.out << key.id << "\t" << role_name(key.role) << "\t" << (key.host_uuid.empty() ? "-" : key.host_uuid)
                << "\t" << key.created << "\t" << (key.revoked.empty() ? "good" : "revoked " + key.revoked) << "\n";
  return exit_ok;
}

int revoke_key(const Command& command, Context& context) {
  const Outcome outcome = Key_Store(context.database).revoke(command.key_id);
  return outcome.ok() ? static_cast<int>(exit_ok) : refused(context.errors, outcome.message);
}

json_spirit::Object body_of(const Pool& pool) {
  json_spirit::Object body{{"name", pool.name}, {"host_uuid", pool.host_uuid}, {"max_bytes", pool.max_bytes}};
  if (!pool.uuid.empty()) body["uuid"] = pool.uuid;
  if (!pool.url.empty()) body["url"] = pool.url;
  if (!pool.directory.empty()) body["directory"] = pool.directory;
  return body;
}

int add_pool(const Command& command, Context& context) {
  // The same checks as a request's.
  Pool pool;
  Outcome outcome = pool.read(body_of(command.pool));
  if (outcome.ok()) outcome = Pool_Store(context.database, {}, context.configuration.host_uuid).add(pool);
  if (!outcome.ok()) return refused(context.errors, outcome.message);
  context.out << pool.uuid << "\n";
  return exit_ok;
}

int list_pools(Context& context) {
  std::vector<Pool> pools;
  const std::string url = context.configuration.url(context.configuration.port);
  Pool_Store store(context.database, url, context.configuration.host_uuid);
  if (!store.all(pools)) return refused(context.errors, "the pools cannot be read; see the log");
  for (const Pool& pool : pools)
    context.out << pool.uuid << "\t" << pool.name << "\t" << (pool.served() ? pool.directory : pool.url) << "\n";
  return exit_ok;
}

void describe_key_commands(CLI::App& key, Command& command) {
  key.require_subcommand(1);
  CLI::App* add = key.add_subcommand("add", "make a key and print it; it is shown this once");
  add->add_option("--role", command.role, "agent, viewer or operator")
      ->required()
      ->check(CLI::IsMember({"agent", "viewer", "operator"}));
  add->add_option("--host", command.host, "uuid of the host, for the role agent");
  key.add_subcommand("list", "list the keys: number, role, host, made, state");
  key.add_subcommand("revoke", "make a key useless")->add_option("number", command.key_id, "as listed")->required();
}

void describe_pool_commands(CLI::App& pool, Command& command) {
  pool.require_subcommand(1);
  CLI::App* add = pool.add_subcommand("add", "register a storage pool and print its uuid");
  add->add_option("name", command.pool.name, "name of the pool")->required();
  add->add_option("--directory", command.pool.directory, "directory on this server, which serves it to the agents");
  add->add_option("--url", command.pool.url, "file:///directory that the agents reach themselves");
  add->add_option("--host", command.pool.host_uuid, "uuid of the host where a file:// pool lies");
  add->add_option("--uuid", command.pool.uuid, "uuid for the pool; made when left out");
  add->add_option("--max-bytes", command.pool.max_bytes, "most bytes that a served pool may hold; 0: no limit");
  pool.add_subcommand("list", "list the pools: uuid, name, place");
}

int run_on_database(const CLI::App& app, const Command& command, Context& context) {
  if (app.got_subcommand("key")) {
    const CLI::App* key = app.get_subcommand("key");
    if (key->got_subcommand("add")) return add_key(command, context);
    if (key->got_subcommand("list")) return list_keys_of(context);
    return revoke_key(command, context);
  }
  return app.get_subcommand("pool")->got_subcommand("add") ? add_pool(command, context) : list_pools(context);
}

}  // namespace

int run_command_line(int argc, const char* const* argv, std::ostream& out, std::ostream& errors) {
  Command command;
  CLI::App app("Dorsal3 backup server", program_name);
  app.set_version_flag("--version", std::string(program_name) + " " + DORSAL3_VERSION);
  app.require_subcommand(1);
  app.add_subcommand("serve", "run the server until SIGTERM");
  describe_key_commands(*app.add_subcommand("key", "keys with which requests show who sends them"), command);
  describe_pool_commands(*app.add_subcommand("pool", "storage pools"), command);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& wrong) {
    return app.exit(wrong, out, errors);
  }
  Configuration configuration;
  std::string error;
  if (!Configuration::load(configuration, error)) {
    errors << program_name << ": " << error << "\n";
    return exit_configuration;
  }
  if (app.got_subcommand("serve")) return serve(configuration, errors);
  platform::open_program_log(program_name);
  Database database;
  if (!open_database(configuration, database, error)) return refused(errors, error);
  Context context{configuration, database, out, errors};
  return run_on_database(app, command, context);
}

}  // namespace backupd
