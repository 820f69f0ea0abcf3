#include "standin/installed_hana.h"

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace standin_test {

namespace fs = std::filesystem;

std::string text_of(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

int count_of(const std::string& text, const std::string& part) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) ++count;
  return count;
}

Output Installed_HANA::run(std::vector<std::string> words, const std::string& input) {
  // Several threads of a test run programs at the same time.
  std::string name = (root_ / "run.XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) return {};
  const std::string in = name + "/in", out = name + "/out", err = name + "/err";
  std::ofstream(in) << input;
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    if (std::freopen(in.c_str(), "r", stdin) == nullptr || std::freopen(out.c_str(), "w", stdout) == nullptr ||
        std::freopen(err.c_str(), "w", stderr) == nullptr)
      ::_exit(126);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), text_of(out), text_of(err)};
}

void Installed_HANA::SetUp() {
  std::string name = (fs::temp_directory_path() / "standin.XXXXXX").string();
  ASSERT_NE(::mkdtemp(name.data()), nullptr);
  root_ = name;
  fs::create_directories(root_ / "opt/tarvex/dorsal3/bin");
  fs::copy_file(STANDIN_BACKINT, root_ / "opt/tarvex/dorsal3/bin/hdbbackint");
}

void Installed_HANA::TearDown() {
  if (fs::exists(instance() / "HDB")) hdb("kill-9");
  fs::remove_all(root_);
}

void Installed_HANA::lay_out(const std::vector<std::string>& more) {
  std::vector<std::string> words{STANDIN_TOOLS "/standin-hana-install", "--root", root_, "--sid", "HDB", "--nr", "00"};
  words.insert(words.end(), more.begin(), more.end());
  const Output got = run(words);
  ASSERT_EQ(got.code, 0) << got.err;
  fs::create_symlink("/opt/tarvex/dorsal3/bin/hdbbackint", backint_link());
  fault("start_ms = 1");
}

void Installed_HANA::start() {
  const Output got = hdb("start");
  ASSERT_EQ(got.code, 0) << got.out;
}

void Installed_HANA::install(const std::vector<std::string>& more) {
  lay_out(more);
  start();
}

Output Installed_HANA::sql(const std::string& statement, const std::string& database, const std::string& password,
                           const std::string& user) {
  return run({instance() / "exe/hdbsql", "-x", "-quiet"},
             "\\c -i 00 -d " + database + " -u " + user + " -p " + password + "\n" + statement + "\n\\q\n");
}

std::string Installed_HANA::value_of(const std::string& query) {
  const Output got = hdbsql({"-xCja", query});
  EXPECT_EQ(got.code, 0) << query << "\n" << got.err;
  return got.out;
}

Output Installed_HANA::hdbsql(const std::vector<std::string>& words, const std::string& input) {
  std::vector<std::string> all{
      instance() / "exe/hdbsql", "-i", "00", "-d", "SYSTEMDB", "-u", "SYSTEM", "-p", "manager"};
  all.insert(all.end(), words.begin(), words.end());
  return run(all, input);
}

Output Installed_HANA::control(const std::vector<std::string>& words) {
  std::vector<std::string> all{STANDIN_TOOLS "/standin-hana-control", "--root", root_, "--sid", "HDB"};
  all.insert(all.end(), words.begin(), words.end());
  return run(all);
}

void Installed_HANA::fault(const std::string& line) {
  std::ofstream(instance() / "standin/faults.conf", std::ios::app) << line << "\n";
}

std::string Installed_HANA::met() const {
  std::ifstream in(instance() / "standin/faults.conf.met");
  return {std::istreambuf_iterator<char>(in), {}};
}

bool Installed_HANA::meets(const std::string& line) const {
  constexpr int most_looks = 6000;
  for (int i = 0; i < most_looks; ++i) {
    if (("\n" + met()).find("\n" + line + "\n") != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

void Installed_HANA::no_faults() { fs::remove(instance() / "standin/faults.conf"); }

void Installed_HANA::only_faults(const std::vector<std::string>& lines) {
  const fs::path file = instance() / "standin/faults.conf";
  const fs::path next = instance() / "standin/faults.next";
  {
    std::ofstream text(next);
    for (const std::string& line : lines) text << line << "\n";
  }
  fs::rename(next, file);
}

void Installed_HANA::script(const std::string& line) { std::ofstream(root_ / "backint.script") << line << "\n"; }

std::string Installed_HANA::running_backup() {
  constexpr int most_tries = 5000;
  for (int i = 0; i < most_tries; ++i) {
    const std::string out = value_of("select BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG where SYS_END_TIME is null");
    if (!out.empty()) return out.substr(0, out.find('\n'));
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ADD_FAILURE() << "no backup runs";
  return "0";
}

std::string Installed_HANA::states(const std::string& database) {
  return value_of("select STATE_NAME from SYS_DATABASES.M_BACKUP_CATALOG where DATABASE_NAME='" + database +
                  "' and ENTRY_TYPE_NAME <> 'log backup' order by BACKUP_ID");
}

fs::path Installed_HANA::write(const std::string& name, const std::string& text) {
  std::ofstream(root_ / name) << text;
  return root_ / name;
}

}  // namespace standin_test
