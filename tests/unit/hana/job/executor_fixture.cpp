#include "unit/hana/job/executor_fixture.h"

#include <mutex>

#include "job/activity_listener.h"
#include "job/job_alert.h"
#include "json/value.h"

namespace backup_test {

namespace {

using json_spirit::Object;

constexpr const char* server_url = "http://127.0.0.1:4711";

std::string shown(const std::vector<support::Log_Line>& lines) {
  std::string text;
  for (const support::Log_Line& line : lines) text += line.text;
  return text;
}

}  // namespace

class Executor_Test::Alert_Recorder : public Alert_Sink {
 public:
  void raise(const Job_Alert& alert) override {
    const std::lock_guard guard(mutex_);
    alerts_.push_back(std::to_string(alert.alert_class) + "/" + std::to_string(alert.code) + " " +
                      std::to_string(alert.flags) + " " + std::to_string(alert.level) + " " +
                      json_spirit::dump_json(alert.parameters));
    EXPECT_EQ(alert.job_id, "job-id");
  }
  [[nodiscard]] std::vector<std::string> alerts() const {
    const std::lock_guard guard(mutex_);
    return alerts_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> alerts_;
};

class Executor_Test::Progress_Recorder : public Activity_Listener {
 public:
  void activity_changed(const Job_Activity_Snapshot& activity) override {
    const std::lock_guard guard(mutex_);
    progress_.push_back(activity.progress);
  }
  [[nodiscard]] std::vector<int> progress() const {
    const std::lock_guard guard(mutex_);
    return progress_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<int> progress_;
};

json_spirit::Object instance_record(const std::string& host, const std::string& name) {
  return {{"name", name},
          {"uuid", "44444444-4444-4444-8444-444444444444"},
          {"host_uuid", host},
          {"extended_attrs",
           Object{{"sid", "HDB"}, {"instance_name", "HDB00"}, {"instance_number", 0}, {"multi_container", true}}}};
}

json_spirit::Object file_record(const std::string& filename, std::uint64_t size, std::uint64_t storage_size) {
  return {{"filename", filename},
          {"origin_path", "/pipes/" + filename},
          {"size", size},
          {"storage_size", storage_size},
          {"extern_backup_id", "ebid-of-" + filename},
          {"source_type", "PIPE"},
          {"storage_path", "dataset/" + filename}};
}

json_spirit::Object resource_record() {
  return {
      {"uuid", resource_uuid}, {"name", "HDB_HDB00"}, {"instances", json_spirit::Array{instance_record(host_uuid)}}};
}

Executor_Test::Executor_Test()
    : hdbsql_(runner_, clock_),
      transport_(backupd_),
      alert_recorder_(std::make_shared<Alert_Recorder>()),
      progress_recorder_(std::make_shared<Progress_Recorder>()) {
  install_system();
  configure_agent();
  define_job();
  set_alert_sink(alert_recorder_);
  set_activity_listener(progress_recorder_);
  backupd_.resource = resource_record();
}

Executor_Test::~Executor_Test() {
  executors_.clear();
  set_alert_sink(nullptr);
  set_activity_listener(nullptr);
}

void Executor_Test::install_system() {
  root_.make_directory("/usr/sap/HDB/HDB00/exe");
  root_.make_directory(trace_directory);
  root_.write("/usr/sap/HDB/SYS/profile/HDB_HDB00_hanahost", "");
  root_.write("/usr/sap/HDB/SYS/global/hdb/custom/config/nameserver.ini",
              std::string("[landscape]\nid = ") + landscape_id + "\n");
  root_.write("/opt/tarvex/dorsal3/bin/hdbbackint", "#!", 0755);
  set_multi_container(true);
  set_version("2.00.059.00");
}

void Executor_Test::configure_agent() {
  root_.write("/etc/opt/tarvex/dorsal3/agent.toml",
              std::string("server_url = \"") + server_url + "\"\nhost_uuid = \"" + host_uuid +
                  "\"\naccess_key = \"the-key-of-this-host\"\n",
              0600);
  EXPECT_TRUE(registry_.open());
  registry_scope_ = std::make_unique<Scoped_Instance_Manager>(registry_);
  EXPECT_TRUE(registry_.set_account("hana", "HDB_HDB00", "", "BACKUP_USER", secure_string(password)));
}

void Executor_Test::define_job() {
  auto* definition = new Job_Definition;
  definition_ = Job_Definition_Ptr(definition);
  source_ = new Default_Backup_Job_Source;
  source_->id(resource_uuid);
  source_->name("HDB_HDB00");
  definition->source = Job_Source_Ptr(source_);
  options_ = new sap_hana::Backup_Job_Options;
  options_->compression_ = COMPR_ZSTD;
  options_->compression_level_ = 3;
  definition->options = Job_Options_Ptr(options_);
  definition->type(JOB_DEFINITION_BACKUP);
  definition->subtype(JOB_DEFINITION_SUBTYPE_FULL);
  definition->id("job-id");
  definition->name("nightly");
  definition->uid("55555555-5555-4555-8555-555555555555");
  definition->host_id(host_uuid);
  definition->agent("agent-1");
  definition->max_seconds_retry(600);
  definition->resumption_buffer_size(1048576);
  definition->target().id(pool_uuid);
  definition->target().location(pool_location);
}

void Executor_Test::set_multi_container(bool multi_container) {
  root_.write("/usr/sap/HDB/SYS/global/hdb/custom/config/global.ini",
              multi_container ? "[multidb]\nmode = multidb\n" : "[multidb]\nmode = singledb\n");
}

void Executor_Test::set_version(const std::string& version) {
  root_.write("/usr/sap/HDB/SYS/exe/hdb/manifest", "comptype: HDB\nfullversion: " + version + " Build 1-2\n");
}

void Executor_Test::set_entries(const std::vector<std::string>& entries) {
  for (const std::string& entry : entries) source_->add_entry(entry);
}

void Executor_Test::write_backup_log(const std::string& text, const std::string& database) {
  const std::string folder = database.empty() ? std::string() : "/DB_" + database;
  root_.write(trace_directory + folder + "/backup.log", text);
}

void Executor_Test::add_backint_job(const std::string& uuid, const std::string& database, std::uint64_t backup_id) {
  backupd_.jobs[uuid] = Object{{"uuid", uuid}, {"database", database}, {"database_backup_id", backup_id}};
  backupd_.files[uuid] = json_spirit::Array{file_record("databackup_0_1", 1000, 400)};
}

void Executor_Test::let_backint_store(std::uint64_t backup_id) {
  backupd_.on_job = [this, backup_id](const Object& job) {
    const std::string uuid = job.find("uuid")->get_str();
    backupd_.jobs[uuid]["database_backup_id"] = backup_id;
    backupd_.files[uuid] = json_spirit::Array{file_record("databackup_0_1", 1000, 400)};
  };
}

void Executor_Test::add_full_set(const std::string& database, std::uint64_t backup_id, const std::string& start) {
  backupd_.sets[{database, backup_id}] = Object{
      {"pool_uuid", pool_uuid},
      {"start_time", start},
      {"lifeline", "lifeline-of-" + database},
      {"incarnation", "incarnation-of-" + database},
      {"storages", json_spirit::Array{Object{{"pool_uuid", pool_uuid}, {"state", json_spirit::Array{"online"}}}}}};
}

Job& Executor_Test::job() {
  if (job_.get() == nullptr) job_ = Job_Ptr(new Job(definition_));
  return *job_;
}

Executor& Executor_Test::new_executor() {
  executors_.push_back(std::make_unique<Executor>(job()));
  return *executors_.back();
}

Executor& Executor_Test::ready_executor() {
  Executor& executor = new_executor();
  EXPECT_TRUE(executor.init_system_info());
  EXPECT_TRUE(executor.init_hdbsql());
  return executor;
}

void Executor_Test::expect_error(const std::string& text) {
  EXPECT_TRUE(log_.claim(text)) << "not logged as an error: " << text << "\nbut:\n" << shown(log_.lines());
}

void Executor_Test::expect_error_with(const std::string& part) {
  EXPECT_GT(log_.claim_containing(part), 0U) << "not logged as an error: " << part << "\nbut:\n" << shown(log_.lines());
}

void Executor_Test::expect_info(const std::string& text) {
  EXPECT_TRUE(log_.claim(text, LM_INFO)) << "not logged as information: " << text << "\nbut:\n" << shown(log_.lines());
}

std::vector<std::string> Executor_Test::alerts() const { return alert_recorder_->alerts(); }
std::vector<int> Executor_Test::progress() const { return progress_recorder_->progress(); }

}  // namespace backup_test
