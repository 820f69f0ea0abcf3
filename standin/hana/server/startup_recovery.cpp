#include "server/startup_recovery.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "base/clock.h"
#include "base/files.h"
#include "base/text.h"
#include "catalog/backup_log.h"

namespace standin {

namespace {

constexpr std::int64_t default_logon_after_ms = 45000;
constexpr const char* done_file = "recovered_statement";

/// Whether the operating system would let <sid>adm read the file: the server may run as another user here.
bool readable_by_sidadm(const Layout& layout, const struct stat& info) {
  const std::string user = lower(layout.sid) + "adm";
  for (const std::string& line : split(read_file(layout.real("/etc/passwd")).value_or(""), '\n')) {
    const auto words = split(line, ':');
    enum Column { name, uid = 2, gid = 3, columns };
    if (words.size() < columns || words[name] != user) continue;
    if (parse_number(words[uid]) == std::int64_t{info.st_uid}) return (info.st_mode & S_IRUSR) != 0;
    if (parse_number(words[gid]) == std::int64_t{info.st_gid}) return (info.st_mode & S_IRGRP) != 0;
  }
  return (info.st_mode & S_IROTH) != 0;
}

void complain(const std::string& text) { std::fprintf(stderr, "%s\n", text.c_str()); }

}  // namespace

std::optional<std::string> Startup_Recovery::take_statement(bool& good) {
  good = true;
  const std::string documented = layout_.instance_directory() + "/work/recoverInstance.sql";
  const std::string path = layout_.real(documented);
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  const std::string identity = std::to_string(info.st_ino) + " " + std::to_string(info.st_mtim.tv_sec) + "." +
                               std::to_string(info.st_mtim.tv_nsec);
  if (read_file(layout_.state(done_file)) == identity) return std::nullopt;
  const auto text = read_file(path);
  if (!text || !readable_by_sidadm(layout_, info)) {
    complain(documented + " cannot be read");
    good = false;
    return std::nullopt;
  }
  if (faults_.take("recover_file").value_or("deleted") == "kept")
    good = write_file(layout_.state(done_file), identity);
  else
    good = ::unlink(path.c_str()) == 0;
  return text;
}

void Startup_Recovery::begin() {
  bool good = true;
  const auto sql = take_statement(good);
  const std::string database = layout_.multi() ? system_database : layout_.sid;
  System_State state;
  if (!sql && good && state.open(layout_) && state.is_broken(database)) {
    complain("database " + database + " cannot be opened: its recovery has not been completed");
    good = false;
  }
  if (!good) state_ = failed;
  if (!sql || !good) return;
  state_ = running;
  thread_ = std::thread([this, text = *sql] {
    const bool done = run(text);
    logons_from_ms_ = now_ms() + faults_.number("logon_after_recovery_ms", default_logon_after_ms);
    state_ = done ? ended_well : failed;
  });
}

bool Startup_Recovery::run(const std::string& sql) {
  System_State state;
  if (!state.open(layout_)) return false;
  Token_Reader reader(sql);
  Recovery_Request request;
  std::optional<Sql_Error> error;
  if (!reader.accept("RECOVER")) {
    error = reader.error();
  } else {
    error = parse_recovery(layout_, sql, reader, request);
    if (!error && !request.database.empty())
      error = Sql_Error{7, "feature not supported: recovery of a tenant while the instance starts"};
  }
  if (!error) error = recoveries_.recover_system(state, request);
  if (error) complain("recovery failed: " + std::to_string(error->code) + ": " + error->text);
  return !error;
}

}  // namespace standin
