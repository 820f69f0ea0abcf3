#include "standin/recovered_hana.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>
#include <string_view>
#include <thread>

#include "support/first_moment.h"

namespace standin_test {

namespace {
constexpr int timeout_s = 900;
constexpr int most_looks = 4000;
void look_again() { std::this_thread::sleep_for(std::chrono::milliseconds(25)); }
std::string first_line(const std::string& text) { return text.substr(0, text.find('\n')); }

std::string utc_text(std::time_t seconds) {
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  return text;
}
}  // namespace

void Recovered_HANA::install_with_catalogs(const std::vector<std::string>& more) {
  install(more);
  const bool single = std::find(more.begin(), more.end(), "--single-container") != more.end();
  home_ = single ? "HDB" : "SYSTEMDB";
  configure("catalog_backup_using_backint");
}

void Recovered_HANA::install_with_logs(const std::vector<std::string>& more) {
  install_with_catalogs(more);
  configure("log_backup_using_backint");
}

void Recovered_HANA::configure(const std::string& key) {
  const Output got =
      sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET ('backup','" + key + "')='true'", home_);
  ASSERT_EQ(got.code, 0) << got.err;
}

bool Recovered_HANA::becomes(const std::function<bool()>& wanted) {
  for (int i = 0; i < most_looks; ++i, look_again())
    if (wanted()) return true;
  return false;
}

Output Recovered_HANA::backup(const std::string& kind, const std::string& prefix, const std::string& database) {
  return sql("BACKUP DATA " + kind + " FOR " + database + " USING BACKINT ('" + prefix + "')");
}

std::string Recovered_HANA::backed_up(const std::string& kind, const std::string& prefix, const std::string& database) {
  const Output got = backup(kind, prefix, database);
  EXPECT_EQ(got.code, 0) << got.err;
  return first_line(
      value_of("select max(BACKUP_ID) from SYS_DATABASES.M_BACKUP_CATALOG where ENTRY_TYPE_NAME <> 'log backup' and "
               "DATABASE_NAME='" +
               database + "'"));
}

Output Recovered_HANA::put(const std::string& key, const std::string& value, const std::string& database) {
  Output got = sql("UPSERT KV VALUES ('" + key + "','" + value + "')", database);
  EXPECT_EQ(got.code, 0) << got.err;
  return got;
}

std::string Recovered_HANA::rows(const std::string& database) {
  const Output got = run({instance() / "exe/hdbsql", "-i", "00", "-d", database, "-u", "SYSTEM", "-p", "manager",
                          "-xCja", "select K, V from KV order by K"});
  EXPECT_EQ(got.code, 0) << got.err;
  return got.out;
}

Output Recovered_HANA::stop(const std::string& database) {
  Output got = sql("ALTER SYSTEM STOP DATABASE " + database);
  EXPECT_EQ(got.code, 0) << got.err;
  return got;
}

Output Recovered_HANA::recover(const std::string& rest) {
  if (status_of() == "YES") stop();
  return sql("RECOVER " + rest);
}

std::string Recovered_HANA::status_of(const std::string& database) {
  return first_line(value_of("select ACTIVE_STATUS from M_DATABASES where DATABASE_NAME='" + database + "'"));
}

void Recovered_HANA::lay_out(const std::vector<std::string>& more) {
  Installed_HANA::lay_out(more);
  const std::time_t here = std::time(nullptr);
  later(static_cast<int>(support::first_moment(here) - here));
}

void Recovered_HANA::later(int seconds) {
  offset_ += seconds;
  ASSERT_EQ(control({"time-offset", std::to_string(offset_)}).code, 0);
}

std::string Recovered_HANA::now() const { return utc_text(std::time(nullptr) + offset_); }

std::string Recovered_HANA::stand_still() {
  constexpr std::time_t ms_per_second = 1000;
  const std::time_t second = std::time(nullptr) + offset_;
  const std::filesystem::path file = instance() / "standin/clock_offset_seconds";
  std::ofstream(file.string() + ".new") << '=' << second * ms_per_second + ms_per_second / 2 << '\n';
  std::filesystem::rename(file.string() + ".new", file);
  return utc_text(second);
}

std::string Recovered_HANA::reached_text() {
  constexpr std::string_view mark = ", reached timestamp ";
  constexpr std::size_t text_length = 25;
  const std::string log = backup_log();
  const std::size_t at = log.rfind(mark);
  return at < log.rfind("RECOVER DATA finished") ? std::string() : log.substr(at + mark.size(), text_length);
}

std::string Recovered_HANA::reached() {
  std::tm parts{};
  const std::string text = reached_text();
  if (text.empty() || ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S%z", &parts) == nullptr) return text;
  const long east_of_utc = parts.tm_gmtoff;  // timegm sets it to 0
  return utc_text(::timegm(&parts) - east_of_utc);
}

void Recovered_HANA::next_second() { later(1); }

int Recovered_HANA::saved_logs(const std::string& service) {
  return count_of(
      value_of(
          "select f.BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG_FILES f join SYS_DATABASES.M_BACKUP_CATALOG c on "
          "c.ENTRY_ID = f.ENTRY_ID where f.SOURCE_TYPE_NAME='volume' and c.ENTRY_TYPE_NAME='log backup' and "
          "c.STATE_NAME='successful' and f.SERVICE_TYPE_NAME='" +
          service + "'"),
      "\n");
}

void Recovered_HANA::save_logs() {
  const int index = saved_logs(), xs = saved_logs("xsengine");
  const bool with_xs = value_of("select count(*) from SYS_DATABASES.M_SERVICES where SERVICE_NAME='xsengine'") != "0\n";
  later(timeout_s);
  for (int i = 0; i < most_looks; ++i, look_again()) {
    if (saved_logs() <= index || (with_xs && saved_logs("xsengine") <= xs)) continue;
    // Each is followed by its catalog backup.
    if (value_of("select count(*) from SYS_DATABASES.M_BACKUP_CATALOG where STATE_NAME='running'") == "0\n") return;
  }
  ADD_FAILURE() << "the logs are not saved";
}

std::string Recovered_HANA::backup_log(const std::string& database) {
  const auto trace = root_ / "usr/sap/HDB/HDB00";
  for (const auto& entry : std::filesystem::directory_iterator(trace))
    if (std::filesystem::exists(entry.path() / "trace"))
      return text_of(entry.path() / "trace" / (database == "SYSTEMDB" ? "" : "DB_" + database) / "backup.log");
  return {};
}

std::string Recovered_HANA::new_calls() {
  const std::string all = text_of(root_ / "backint.calls");
  std::string fresh = all.substr(std::min(seen_calls_, all.size()));
  seen_calls_ = all.size();
  return fresh;
}

}  // namespace standin_test
