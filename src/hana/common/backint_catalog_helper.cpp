#include "hana/common/backint_catalog_helper.h"

#include <iterator>
#include <set>

#include "platform/log.h"
#include "scrt/http_encode.h"
#include "scrt/http_query_string_builder.h"

namespace sap_hana {

namespace {

constexpr const char* jobs_path = "/q5/r/v2/backint/jobs";
constexpr const char* ondemand_jobs_path = "/q5/r/v2/backint/on-demand-jobs";
constexpr const char* files_path = "/q5/r/v2/backint/files";
constexpr std::size_t page_rows = 1000;
constexpr unsigned http_not_found = 404;
constexpr unsigned http_conflict = 409;

using Query = HTTP_Query_String_Builder_T<std::back_insert_iterator<std::string>>;

std::string job_path(const std::string& uuid) {
  std::string path = std::string(jobs_path) + "/";
  http_encode_string_i(uuid.c_str(), http_encode_slash, std::back_inserter(path));
  return path;
}

bool has_uuid(const char* uuid) {
  if (uuid != nullptr && *uuid != '\0') return true;
  D3_ERROR("A Backint job record needs a uuid\n");
  return false;
}

void log_failure(const char* what, const std::string& which, const JSON_HTTP_Failure& failure) {
  D3_ERROR("Failed to %C '%C' at backupd: %C\n", what, platform::cut_for_log(which).c_str(),
           platform::cut_for_log(failure.message).c_str());
}

/// Equal in all that the writer of a record decides.
bool same_job(Backint_Backup_Job_Info left, Backint_Backup_Job_Info right) {
  left.id = right.id = 0;
  left.database_backup_id = right.database_backup_id = 0;
  return left.to_json() == right.to_json();
}

/// A record out of an answer of backupd.
bool read_job(const json_spirit::Value& reply, const std::string& uuid, Backint_Backup_Job_Info& job) {
  std::string error = "it is no object";
  if (reply.is_object() && job.from_json(reply.get_obj(), &error)) return true;
  D3_ERROR("The Backint job '%C' as backupd tells it cannot be read: %C\n", uuid.c_str(),
           platform::cut_for_log(error).c_str());
  return false;
}

bool append_rows(const json_spirit::Value& reply, std::list<Backup_File_Info>& files, std::size_t& rows) {
  json_spirit::Array found;
  if (!reply.is_object() || !json_spirit::object_get(reply.get_obj(), "rows", found)) {
    D3_ERROR("backupd answered something else than a list of Backint file records\n");
    return false;
  }
  for (const json_spirit::Value& row : found) {
    std::string error = "it is no object";
    if (row.is_object() && files.emplace_back().from_json(row.get_obj(), &error)) continue;
    D3_ERROR("backupd answered a Backint file record that cannot be read: %C\n", platform::cut_for_log(error).c_str());
    return false;
  }
  rows = found.size();
  return true;
}

/// Reads one list and appends its rows.
bool read_page(const JSON_HTTP_Session& session, const std::string& path, const std::string& which,
               std::list<Backup_File_Info>& files, std::size_t& rows) {
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  if (session.get(path, reply, &failure)) return append_rows(reply, files, rows);
  log_failure("read the Backint files of", which, failure);
  return false;
}

/// Reads a whole list page by page. `path` has a query that ends in '?' or '&'.
bool read_all_pages(const JSON_HTTP_Session& session, const std::string& path, const std::string& which,
                    std::list<Backup_File_Info>& files) {
  std::list<Backup_File_Info> found;
  for (std::size_t offset = 0, rows = page_rows; rows == page_rows; offset += rows) {
    const std::string page = path + "limit=" + std::to_string(page_rows) + "&offset=" + std::to_string(offset);
    if (!read_page(session, page, which, found, rows)) return false;
  }
  // Records that were added meanwhile moved the later pages: a record can have come twice.
  std::set<std::uint64_t> seen;
  found.remove_if([&seen](const Backup_File_Info& file) { return file.id != 0 && !seen.insert(file.id).second; });
  files = std::move(found);
  return true;
}

void add_pair(Query& query, const char* key, const std::string& value) {
  if (!value.empty()) query(key, value);
}

}  // namespace

bool Backint_Catalog_helper::init(JSON_HTTP_Session& session) {
  session_ = JSON_HTTP_Session(session.session(), session.retries(), session.retry_timeout());
  return static_cast<bool>(session_);
}

bool Backint_Catalog_helper::add_job(const Backint_Backup_Job_Info& job) {
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  if (session_.post(jobs_path, job.to_json(), reply, &failure)) return true;
  // Sent more than once, an answer that was lost may have been a success.
  Backint_Backup_Job_Info stored;
  if (failure.status == http_conflict && failure.attempts > 1 && get_job(job.uuid.c_str(), stored) &&
      same_job(job, stored))
    return true;
  log_failure("store the Backint job", job.uuid, failure);
  return false;
}

bool Backint_Catalog_helper::check_and_add_job(const Backint_Backup_Job_Info& job) {
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  if (session_.post(jobs_path, job.to_json(), reply, &failure)) return true;
  Backint_Backup_Job_Info stored;
  if (failure.status == http_conflict && get_job(job.uuid.c_str(), stored) && same_job(job, stored)) return true;
  log_failure("store the Backint job", job.uuid, failure);
  return false;
}

bool Backint_Catalog_helper::get_job(const char* uuid, Backint_Backup_Job_Info& job) {
  job = {};
  if (!has_uuid(uuid)) return false;
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  if (!session_.get(job_path(uuid), reply, &failure)) {
    log_failure("read the Backint job", uuid, failure);
    return false;
  }
  return read_job(reply, uuid, job);
}

bool Backint_Catalog_helper::add_ondemand_job(const Backint_Backup_Job_Info& job, Backint_Backup_Job_Info& stored) {
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  stored = {};
  if (session_.post(ondemand_jobs_path, job.to_json(), reply, &failure)) return read_job(reply, job.uuid, stored);
  log_failure("store the Backint job", job.uuid, failure);
  return false;
}

bool Backint_Catalog_helper::update_job_database_backup_id(const char* uuid, std::uint64_t database_backup_id) {
  if (!has_uuid(uuid)) return false;
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  const json_spirit::Object change{{"database_backup_id", database_backup_id}};
  if (session_.patch(job_path(uuid), change, reply, &failure)) return true;
  log_failure("set the database backup id of the Backint job", uuid, failure);
  return false;
}

bool Backint_Catalog_helper::remove_job(const char* uuid) {
  if (!has_uuid(uuid)) return false;
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  if (session_.del(job_path(uuid), reply, &failure)) return true;
  log_failure("remove the Backint job", uuid, failure);
  return false;
}

bool Backint_Catalog_helper::get_job_files(const char* uuid, std::list<Backup_File_Info>& files) {
  files.clear();
  std::list<Backup_File_Info> found;
  std::size_t rows = 0;
  if (!has_uuid(uuid) || !read_page(session_, job_path(uuid) + "/files", uuid, found, rows)) return false;
  files = std::move(found);
  return true;
}

bool Backint_Catalog_helper::add_file(const Backup_File_Info& file) {
  return add_files(file.info_uuid.c_str(), {file});
}

bool Backint_Catalog_helper::add_files(const char* uuid, const std::list<Backup_File_Info>& files) {
  return post_files(uuid, files, false);
}

bool Backint_Catalog_helper::add_last_file(const Backup_File_Info& file) {
  return post_files(file.info_uuid.c_str(), {file}, true);
}

bool Backint_Catalog_helper::post_files(const char* uuid, const std::list<Backup_File_Info>& files, bool last) {
  if (!has_uuid(uuid)) return false;
  if (files.empty()) return true;
  json_spirit::Array rows;
  for (const Backup_File_Info& file : files) rows.push_back(file.to_json());
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  json_spirit::Object body{{"files", rows}};
  if (last) body["last"] = true;
  if (session_.post(job_path(uuid) + "/files", body, reply, &failure)) return true;
  log_failure("store the files of the Backint job", uuid, failure);
  return false;
}

bool Backint_Catalog_helper::get_files(const File_Query& wanted, std::list<Backup_File_Info>& files) {
  std::string path = std::string(files_path) + "?";
  Query query(std::back_inserter(path));
  add_pair(query, "host_uuid", wanted.host_uuid);
  add_pair(query, "sid", wanted.sid);
  add_pair(query, "database", wanted.database);
  add_pair(query, "origin_path", wanted.origin_path);
  add_pair(query, "extern_backup_id", wanted.extern_backup_id);
  if (!path.ends_with('?')) path += '&';
  files.clear();
  return read_all_pages(session_, path, wanted.sid + "/" + wanted.database, files);
}

bool Backint_Catalog_helper::get_file_by_ebid(const char* ebid, const File_Query& scope, Backup_File_Info& file,
                                              bool& found) {
  file = {};
  found = false;
  if (ebid == nullptr || *ebid == '\0') {
    D3_ERROR("A Backint file cannot be looked up without its external backup id\n");
    return false;
  }
  File_Query wanted = scope;
  wanted.extern_backup_id = ebid;
  std::list<Backup_File_Info> files;
  if (!get_files(wanted, files)) return false;
  found = !files.empty();
  if (found) file = std::move(files.front());
  return true;
}

bool Backint_Catalog_helper::remove_file(std::uint64_t id) {
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  const std::string path = std::string(files_path) + "/" + std::to_string(id);
  if (session_.del(path, reply, &failure)) return true;
  // Sent more than once, it may be gone by the first.
  if (failure.status == http_not_found && failure.attempts > 1) return true;
  log_failure("remove the Backint file", std::to_string(id), failure);
  return false;
}

}  // namespace sap_hana
