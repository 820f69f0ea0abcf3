#include <unistd.h>

#include <climits>
#include <cstdio>
#include <filesystem>
#include <map>

#include "base/cluster.h"
#include "base/files.h"
#include "base/ini.h"
#include "base/text.h"
#include "engine/accounts.h"
#include "engine/system_replication.h"
#include "install/layout_files.h"

namespace {

using namespace standin;

constexpr const char* usage =
    "Usage: standin-hana-install --root R --sid SID --nr NN --version V [--single-container] [--tenant NAME ...]\n"
    "       [--services indexserver,xsengine...] [--user NAME --password-file F] [--data-mb N] [--host NAME]\n"
    "       standin-hana-install --root R --secondary-of ROOT --mode sync|syncmem|async --host NAME --sid SID\n"
    "       standin-hana-install --root R --join ROOT --host NAME --sid SID\n";
constexpr std::int64_t pages_per_mb = 256;

int fail(const char* text) {
  std::fprintf(stderr, "standin-hana-install: %s\n", text);
  return 1;
}

std::string kernel_host() {
  char name[HOST_NAME_MAX + 1] = "";
  return ::gethostname(name, sizeof name - 1) == 0 ? std::string(split(name, '.').front()) : "localhost";
}

bool fill(const Layout& layout, System_State& state, const std::vector<std::string>& tenants,
          const std::vector<std::string>& services, std::int64_t pages, const std::string& user,
          const std::string& password) {
  std::vector<std::string> names = tenants;
  if (layout.multi())
    names.insert(names.begin(), system_database);
  else
    names = {layout.sid};
  const auto share = pages / static_cast<std::int64_t>(names.size());
  Accounts accounts(state);
  for (const std::string& name : names) {
    std::vector<std::string> own = services;
    if (name == system_database) own = {"nameserver"};
    if (!layout.multi()) own.insert(own.begin(), "nameserver");
    if (!state.add_database(name, own, share) || !accounts.set(name, user, password, "ALL")) return false;
    if (!make_directories(layout.real(layout.backint_directory(name))) ||
        !make_directories(layout.real(layout.trace_directory(name))))
      return false;
  }
  return true;
}

/// What `fill` makes for each database, for the databases that another site has.
bool make_directories_of_databases(const Layout& from, const Layout& layout) {
  System_State state;
  if (!state.open(from)) return false;
  for (const Database& database : state.databases())
    if (!make_directories(layout.real(layout.backint_directory(database.name))) ||
        !make_directories(layout.real(layout.trace_directory(database.name))))
      return false;
  return true;
}

/// Both sites of a replicated system are one landscape.
bool take_landscape_id(const Layout& from, const Layout& layout) {
  const std::string id = Ini::load(from.configuration("nameserver.ini")).get("landscape", "id");
  Ini own = Ini::load(layout.configuration("nameserver.ini"));
  own.set("landscape", "id", id);
  return !id.empty() && own.save(layout.configuration("nameserver.ini"), "nameserver.ini", "hdblcm");
}

struct Wishes {
  std::map<std::string, std::string> options;
  std::vector<std::string> tenants;
  bool single = false;

  [[nodiscard]] std::string get(const char* name, const char* otherwise = "") const {
    const auto found = options.find(name);
    return found == options.end() ? std::string(otherwise) : found->second;
  }
  [[nodiscard]] bool has(const char* name) const { return options.contains(name); }
};

bool read_wishes(int count, char** values, Wishes& wishes) {
  for (int i = 1; i < count; ++i) {
    const std::string word = values[i];
    if (word == "--single-container") {
      wishes.single = true;
      continue;
    }
    if (!word.starts_with("--") || i + 1 == count) return false;
    const std::string value = values[++i];
    if (word == "--tenant")
      wishes.tenants.push_back(value);
    else
      wishes.options[word] = value;
  }
  return !wishes.get("--root").empty() && wishes.get("--sid").size() == 3;
}

/// Absolute, without a slash at its end: parts of one system find each other by it.
std::string root_of(const std::string& given) {
  std::error_code error;
  std::string root = std::filesystem::absolute(given, error).lexically_normal().string();
  if (root.ends_with('/')) root.pop_back();
  return root;
}

std::string own_folder() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
}

int install_system(const Wishes& wishes) {
  const Layout layout{root_of(wishes.get("--root")),
                      wishes.get("--sid"),
                      wishes.get("--nr", "00"),
                      wishes.get("--host", kernel_host().c_str()),
                      wishes.get("--version", "2.00.059.00.1632920961"),
                      wishes.single ? "single" : "multi"};
  std::string password = "manager";
  if (wishes.has("--password-file")) {
    const auto text = read_file(wishes.get("--password-file"));
    if (!text) return fail("the password file cannot be read");
    password = std::string(split(*text, '\n').front());
  }
  if (!lay_out(layout, own_folder())) return fail("the installation's files cannot be written");
  std::error_code error;
  std::filesystem::remove(layout.shared("system.db"), error);
  System_State state;
  if (!state.open(layout)) return fail("the state cannot be written");
  const std::int64_t pages = parse_number(wishes.get("--data-mb", "4")).value_or(0) * pages_per_mb;
  const bool filled = fill(layout, state, wishes.tenants, split(wishes.get("--services", "indexserver"), ','), pages,
                           wishes.get("--user", "SYSTEM"), password);
  return filled ? 0 : fail("the databases cannot be made");
}

/// Another installation of the same system, which is like the one it joins but for its host.
std::optional<Layout> like(const Layout& other, const Wishes& wishes) {
  Layout layout = other;
  layout.root = root_of(wishes.get("--root"));
  layout.host = wishes.get("--host");
  layout.store.clear();
  if (layout.host.empty() || layout.host == other.host || layout.root == other.root) return std::nullopt;
  return layout;
}

int install_secondary(const Wishes& wishes) {
  const auto primary = find_layout(root_of(wishes.get("--secondary-of")), wishes.get("--sid"));
  if (!primary) return fail("there is no primary site below that root");
  if (hosts_of(*primary).size() > 1) return fail("a scale-out system has no second site here");
  const auto layout = like(*primary, wishes);
  if (!layout) return fail("a secondary site needs a --root and a --host of its own");
  if (!lay_out(*layout, own_folder()) || !make_directories_of_databases(*primary, *layout))
    return fail("the installation's files cannot be written");
  if (!take_landscape_id(*primary, *layout)) return fail("the landscape id cannot be taken over");
  const std::string error = set_up_pair(*primary, *layout, wishes.get("--mode", "sync"));
  return error.empty() ? 0 : fail(error.c_str());
}

int install_further_host(const Wishes& wishes) {
  const auto first = find_layout(root_of(wishes.get("--join")), wishes.get("--sid"));
  if (!first) return fail("there is no system below that root");
  auto layout = like(*first, wishes);
  if (!layout) return fail("a further host needs a --root and a --host of its own");
  if (load_replication(*first).mode != "none") return fail("a replicated system cannot have further hosts here");
  layout->store = std::filesystem::path(first->shared("system.db")).parent_path().string();
  const bool done = lay_out_further_host(*first, *layout, own_folder()) &&
                    make_directories_of_databases(*first, *layout) && join_landscape(*first, *layout);
  return done ? 0 : fail("the installation's files cannot be written");
}

}  // namespace

int main(int count, char** values) {
  Wishes wishes;
  if (!read_wishes(count, values, wishes)) {
    std::fputs(usage, stderr);
    return 2;
  }
  if (wishes.has("--join")) return install_further_host(wishes);
  return wishes.has("--secondary-of") ? install_secondary(wishes) : install_system(wishes);
}
