#include <unistd.h>

#include <climits>
#include <cstdio>
#include <filesystem>
#include <map>

#include "base/files.h"
#include "base/text.h"
#include "engine/accounts.h"
#include "install/layout_files.h"

namespace {

using namespace standin;

constexpr const char* usage =
    "Usage: standin-hana-install --root R --sid SID --nr NN --version V [--single-container] [--tenant NAME ...]\n"
    "       [--services indexserver,xsengine...] [--user NAME --password-file F] [--data-mb N] [--host NAME]\n";
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

}  // namespace

int main(int count, char** values) {
  std::map<std::string, std::string> options;
  std::vector<std::string> tenants;
  bool single = false;
  for (int i = 1; i < count; ++i) {
    const std::string word = values[i];
    if (word == "--single-container") {
      single = true;
    } else if (word.starts_with("--") && i + 1 < count) {
      const std::string value = values[++i];
      if (word == "--tenant")
        tenants.push_back(value);
      else
        options[word] = value;
    } else {
      std::fputs(usage, stderr);
      return 2;
    }
  }
  const auto get = [&](const char* name, const char* otherwise) {
    const auto found = options.find(name);
    return found == options.end() ? std::string(otherwise) : found->second;
  };
  if (get("--root", "").empty() || get("--sid", "").size() != 3) {
    std::fputs(usage, stderr);
    return 2;
  }
  std::error_code error;
  const std::string root = std::filesystem::absolute(get("--root", ""), error).lexically_normal().string();
  Layout layout{root.ends_with('/') ? root.substr(0, root.size() - 1) : root,
                get("--sid", ""),
                get("--nr", "00"),
                get("--host", kernel_host().c_str()),
                get("--version", "2.00.059.00.1632920961"),
                single ? "single" : "multi"};
  std::string password = "manager";
  if (options.contains("--password-file")) {
    const auto text = read_file(get("--password-file", ""));
    if (!text) return fail("the password file cannot be read");
    password = std::string(split(*text, '\n').front());
  }
  const std::string tools = std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
  if (!lay_out(layout, tools)) return fail("the installation's files cannot be written");
  std::filesystem::remove(layout.state("system.db"), error);
  System_State state;
  if (!state.open(layout)) return fail("the state cannot be written");
  const std::int64_t pages = parse_number(get("--data-mb", "4")).value_or(0) * pages_per_mb;
  if (!fill(layout, state, tenants, split(get("--services", "indexserver"), ','), pages, get("--user", "SYSTEM"),
            password))
    return fail("the databases cannot be made");
  return 0;
}
