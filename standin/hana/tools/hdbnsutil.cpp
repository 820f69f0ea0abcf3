#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include "engine/system_replication.h"
#include "tools/instance_control.h"
#include "tools/sr_state.h"

namespace {

using namespace standin;

constexpr const char* usage =
    "usage: hdbnsutil -sr_state [--sapcontrol=1] | -sr_stateConfiguration [--sapcontrol=1] | -sr_enable --name=<site> "
    "|\n"
    "  -sr_takeover | -sr_register --name=<site> --remoteHost=<host> --remoteInstance=<nr> --replicationMode=<mode>\n"
    "  [--operationMode=<mode>] | -reconfig\n";

/// "--key=value" words behind the action.
using Options = std::map<std::string, std::string>;

Options read_options(int count, char** values) {
  Options options;
  for (int i = 2; i < count; ++i) {
    const std::string word = values[i];
    const std::size_t equals = word.find('=');
    options[word.substr(0, equals)] = equals == std::string::npos ? std::string() : word.substr(equals + 1);
  }
  return options;
}

int finish(const Layout& layout, const std::string& error) {
  if (error.empty()) {
    std::printf("done.\n");
    return 0;
  }
  std::printf("error: %s;\nfailed. trace file nameserver_%s.00000.000.trc may contain more error details.\n",
              error.c_str(), layout.host.c_str());
  return 1;
}

int run_register(const Layout& layout, Options& options) {
  std::printf("adding site ...\n");
  if (instance_state(layout).phase != "stopped")
    return finish(layout, "the database of this site must be stopped before it is registered");
  if (options["--remoteInstance"] != layout.number)
    return finish(layout, "the remote instance must have the number " + layout.number);
  Registration wanted{options["--name"], options["--remoteHost"], options["--replicationMode"]};
  if (!options["--operationMode"].empty()) wanted.operation = options["--operationMode"];
  std::printf("collecting information ...\nupdating local ini files ...\n");
  return finish(layout, register_secondary(layout, wanted));
}

}  // namespace

int main(int count, char** values) {
  const auto layout = own_layout();
  if (!layout) {
    std::fprintf(stderr, "hdbnsutil lies in no installation\n");
    return 1;
  }
  Options options = read_options(count, values);
  const State_Form form = options["--sapcontrol"] == "1" ? State_Form::sapcontrol : State_Form::text;
  const auto tell = [&](bool only_configuration) {
    print_replication_state(*layout, form, only_configuration);
    return 0;
  };
  const std::map<std::string, std::function<int()>> actions{
      {"-reconfig", [&] { return finish(*layout, {}); }},
      {"-sr_state", [&] { return tell(false); }},
      {"-sr_stateConfiguration", [&] { return tell(true); }},
      {"-sr_enable", [&] { return finish(*layout, enable_replication(*layout, options["--name"])); }},
      {"-sr_takeover", [&] { return finish(*layout, take_over(*layout)); }},
      {"-sr_register", [&] { return run_register(*layout, options); }}};
  const auto action = actions.find(count > 1 ? values[1] : "");
  if (action != actions.end()) return action->second();
  std::fputs(usage, stderr);
  return 1;
}
