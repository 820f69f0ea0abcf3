#include "agentd/log_backup/ondemand_setup.h"

#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>
#include <sys/stat.h>

#include <algorithm>

#include "agentd/backupd_link/alert_tap.h"
#include "agentd/instances/system_id.h"
#include "agentd/jobs/job_table.h"
#include "agentd/log_backup/log_backup_settings.h"
#include "job/default_backup_job_source.h"
#include "job/job_activity_record.h"
#include "job/job_log.h"
#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/users.h"

namespace agentd {

namespace {

constexpr const char* sap_group = "sapsys";

enum Setup_Code { setup_done = 0, setup_failed = -1 };

/// The error lines of the calling thread, joined.
class Error_Lines : public ACE_Log_Msg_Callback {
 public:
  void log(ACE_Log_Record& record) override {
    if (record.type() < LM_ERROR) return;
    std::string line = record.msg_data();
    while (!line.empty() && line.back() == '\n') line.pop_back();
    text_ += (text_.empty() ? "" : "; ") + line;
  }
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::string text_;
};

/// What one request came to.
struct Result {
  Setup_Code code = setup_done;
  std::string message;

  void add(const std::string& text) { message += (message.empty() || text.empty() ? "" : "; ") + text; }
  void fail(const std::string& text) {
    code = setup_failed;
    add(text);
  }
};

JSON_RPC_Answer to_answer(const Result& result, const std::vector<Job_Alert>& raised) {
  json_spirit::Array alerts;
  for (const Job_Alert& alert : raised)
    alerts.emplace_back(
        json_spirit::Object{{"class", alert.alert_class}, {"code", alert.code}, {"parameters", alert.parameters}});
  JSON_RPC_Answer answer;
  answer.ok = true;
  answer.result = json_spirit::Object{{"code", static_cast<int>(result.code)},
                                      {"message", platform::cut_for_log(result.message)},
                                      {"alerts", std::move(alerts)}};
  return answer;
}

/// Runs a request of the job on this thread and adds the error lines it left.
template <typename Request>
int run(const Request& request, Result& result) {
  const auto lines = std::make_shared<Error_Lines>();
  int code = setup_failed;
  {
    const Scoped_Log_Callback scope(lines);
    code = request();
  }
  result.add(lines->text());
  return code;
}

bool owns(const Log_Backup_File& file, const Job_Definition& definition) {
  return file.definition_id == definition.id();
}

/// The definition's own configuration. False when there is none, or it cannot be told.
bool find_live_file(const Job_Definition& definition, Log_Backup_File& found) {
  std::vector<Log_Backup_File> files;
  std::string error;
  if (!list_log_backup_files(files, error)) return false;
  for (Log_Backup_File& file : files) {
    if (!file.live || !owns(file, definition)) continue;
    found = std::move(file);
    return true;
  }
  return false;
}

/// The user of the database system reads the file by its group.
bool is_readable_for_sap(const std::string& path) {
  gid_t group = 0;
  struct stat status {};
  return platform::find_group(sap_group, group) &&
         ::stat(platform::File_Root::current().real(path).c_str(), &status) == 0 && status.st_gid == group &&
         (status.st_mode & S_IRGRP) != 0;
}

/// The module takes a copy that was set aside for an installed definition; nothing is stored by a copy.
void confirm_setup(const Job_Definition& definition, Result& result) {
  std::vector<Log_Backup_File> files;
  std::string error;
  if (!list_log_backup_files(files, error)) return result.fail(error);
  std::string copy;
  for (const Log_Backup_File& file : files) {
    if (!owns(file, definition)) continue;
    if (file.live) return;
    copy = file.path;
  }
  if (copy.empty()) return result.fail("no configuration file was written; the agent's log tells why");
  result.fail("nothing was written, because of the copy " + copy +
              " that another definition of the same database has set aside; remove the copy and set it up again");
}

std::string sid_of(const Job_Definition& definition) {
  const auto* const source = dynamic_cast<const Default_Backup_Job_Source*>(definition.source.get());
  const std::string sid = source == nullptr ? "" : source->name().substr(0, source->name().find('_'));
  return is_sid(sid) ? sid : "";
}

/// The database system goes on handing its logs over when it could not be told to stop.
void confirm_switched_off(const Job_Definition& definition, const std::vector<Log_Backup_File>& files, Result& result) {
  const std::string sid = sid_of(definition);
  Log_Backup_Settings settings;
  std::string error;
  const auto of_system = [&](const Log_Backup_File& file) { return file.live && file.sid == sid; };
  if (sid.empty() || std::any_of(files.begin(), files.end(), of_system)) return;
  if (!read_log_backup_settings(sid, "", settings, error)) return result.add(error);
  if (!settings.log_using_backint && !settings.catalog_using_backint) return;
  const std::string state = "system " + sid + " still sends its logs to Backint, where no definition takes them";
  const bool others = std::any_of(files.begin(), files.end(), [](const Log_Backup_File& file) { return file.live; });
  if (others)
    result.add(state +
               "; it stays so as long as another system of this host has a log backup: switch "
               "log_backup_using_backint and catalog_backup_using_backint off in its global.ini");
  else
    result.fail(state + "; it is told again when it runs as a primary");
}

void confirm_removal(const Job_Definition& definition, Result& result) {
  std::vector<Log_Backup_File> files;
  std::string error;
  if (!list_log_backup_files(files, error)) return result.fail(error);
  for (const Log_Backup_File& file : files)
    if (file.live && owns(file, definition)) return result.fail("its configuration file " + file.path + " stands");
  confirm_switched_off(definition, files, result);
}

std::string marker_of(const Job_Definition& definition) {
  return job_activity_directory() + "/" + platform::encode_file_name(definition.id());
}

/// What stands for the definition in the activity directory as long as it is set up: the module gives it to the group
/// of the database system. A log backup works without it, so a failure is only told.
void mark(const Job_Definition& definition) {
  const std::string path = marker_of(definition);
  if (platform::is_regular_file(path.c_str())) return;
  if (platform::mkdir_p(job_activity_directory().c_str(), platform::mode_directory) != 0 ||
      !platform::write_file_durably(path, definition.name() + "\n", platform::mode_sap_file))
    D3_WARNING("Failed to write '%C': %m\n", path.c_str());
}

void unmark(const Job_Definition& definition) {
  const std::string path = marker_of(definition);
  if (!platform::remove_file(path)) D3_WARNING("Failed to remove '%C': %m\n", path.c_str());
}

}  // namespace

Job_Ptr Ondemand_Setup::make(const json_spirit::Object& params, JSON_RPC_Answer& refusal) const {
  const json_spirit::Value* const document = params.find("definition");
  std::string why = "\"definition\" is needed";
  Job_Ptr job;
  if (document != nullptr) job = maker_.make(*document, why);
  if (job.get() != nullptr) {
    const Job_Definition_Ptr definition = job->definition();
    if (!definition->schedule.null() && definition->schedule->type() == JOB_SCHEDULE_ONDEMAND) return job;
    why = "the definition is not run on demand of what it backs up, its schedule is of another type";
  }
  refusal = refusal_answer(JSON_RPC_E_INVALID_PARAMS, why);
  return {};
}

std::string Ondemand_Setup::find_fault(const std::string& type, const Job_Definition& definition,
                                       const Log_Backup_File& file) const {
  if (!is_readable_for_sap(file.path))
    return "its configuration file " + file.path + " cannot be read by the group " + sap_group;
  const auto* const source = dynamic_cast<const Default_Backup_Job_Source*>(definition.source.get());
  Log_Backup_Settings settings;
  std::string error;
  // Elsewhere the settings are another host's affair.
  if (source == nullptr || !log_backups_.is_open(type, source->name())) return {};
  // What cannot be read now is no reason to take a log backup away.
  if (!read_log_backup_settings(sid_of(definition), file.database, settings, error)) return {};
  return settings.lacks();
}

std::string Ondemand_Setup::remove_half_done(const json_spirit::Object& params,
                                             const Job_Definition& definition) const {
  Log_Backup_File file;
  if (!find_live_file(definition, file)) return {};
  std::string type;
  json_spirit::Object document;
  if (json_spirit::object_get(params, "definition", document)) json_spirit::object_get(document, "module", type);
  const std::string fault = find_fault(type, definition, file);
  if (fault.empty()) return {};
  D3_WARNING("'%C' was not set up to its end, %C: it is removed and set up again\n",
             platform::cut_for_log(definition.name()).c_str(), platform::cut_for_log(fault).c_str());
  Result removal;
  JSON_RPC_Answer refusal;
  const Job_Ptr job = make(params, refusal);
  const bool removed = job.get() != nullptr && run([&] { return job->remove(false, nullptr); }, removal) == 0;
  if (removed && !find_live_file(definition, file)) return {};
  removal.add("it was not set up to its end, " + fault + ", and " + file.path +
              " cannot be removed; remove it by hand, then it is set up again");
  return removal.message;
}

JSON_RPC_Answer Ondemand_Setup::setup(const json_spirit::Object& params) {
  JSON_RPC_Answer refusal;
  const Job_Ptr job = make(params, refusal);
  if (job.get() == nullptr) return refusal;
  const std::lock_guard lock(one_at_a_time_);
  const Job_Definition_Ptr definition = job->definition();
  const std::string name = platform::cut_for_log(definition->name());
  const Alert_Tap::Copies raised;
  Result result;
  mark(*definition);
  if (const std::string left = remove_half_done(params, *definition); !left.empty())
    result.fail(left);
  else if (run([&] { return job->setup_ondemand(); }, result) != 0)
    result.code = setup_failed;
  else
    confirm_setup(*definition, result);
  if (result.code == setup_done)
    D3_INFO("'%C' is set up\n", name.c_str());
  else
    D3_WARNING("'%C' is not set up: %C\n", name.c_str(), platform::cut_for_log(result.message).c_str());
  return to_answer(result, raised.alerts());
}

JSON_RPC_Answer Ondemand_Setup::unsetup(const json_spirit::Object& params) {
  JSON_RPC_Answer refusal;
  const Job_Ptr job = make(params, refusal);
  if (job.get() == nullptr) return refusal;
  const std::lock_guard lock(one_at_a_time_);
  const Job_Definition_Ptr definition = job->definition();
  const std::string name = platform::cut_for_log(definition->name());
  const Alert_Tap::Copies raised;
  Result result;
  if (run([&] { return job->remove(false, nullptr); }, result) != 0) result.code = setup_failed;
  confirm_removal(*definition, result);
  if (result.code == setup_done) unmark(*definition);
  if (result.code == setup_done)
    D3_INFO("'%C' is removed from what it backed up\n", name.c_str());
  else
    D3_WARNING("'%C' is not removed: %C\n", name.c_str(), platform::cut_for_log(result.message).c_str());
  return to_answer(result, raised.alerts());
}

}  // namespace agentd
