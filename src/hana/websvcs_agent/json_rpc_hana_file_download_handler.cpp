#include "hana/websvcs_agent/json_rpc_hana_file_download_handler.h"

#include <fcntl.h>

#include "agent/backupd_client/client_io_ex.h"
#include "hana/common/directory_permission.h"
#include "hana/common/file_group.h"
#include "hana/common/json_file.h"
#include "hana/common/restore_conf_path.h"
#include "hana/websvcs_agent/rpc_answers.h"
#include "net/json_rpc.h"
#include "platform/files.h"
#include "platform/log.h"

namespace {

constexpr const char* no_directory_name = "failed to get catalog_conf dir";
constexpr const char* no_directory = "failed to create catalog_conf dir";
constexpr const char* catalog_not_saved = "failed to save catalog config file\n";
constexpr const char* catalog_group_failed = "failed to change file group\n";
constexpr const char* restore_not_saved = "failed to save restore config file\n";
constexpr const char* restore_group_failed = "failed to change restore config file group\n";

constexpr int download_flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
constexpr std::size_t download_block_bytes = 8192;

struct Params {
  std::string origin_sid;
  std::string origin_database;
  std::string target_sid;
  std::string target_database;
  bool has_extended_attrs = false;
  json_spirit::Object extended_attrs;
};

/// Throws when a member is missing or of another type.
Params read_params(const json_spirit::Object& object) {
  using json_spirit::object_require;
  Params params;
  params.origin_sid = object_require<std::string>(object, "origin_sid");
  params.origin_database = object_require<std::string>(object, "origin_database");
  params.target_sid = object_require<std::string>(object, "target_sid");
  params.target_database = object_require<std::string>(object, "target_database");
  params.has_extended_attrs = object.contains("extended_attrs");
  if (params.has_extended_attrs) params.extended_attrs = object_require<json_spirit::Object>(object, "extended_attrs");
  return params;
}

bool make_directory(const char* directory) {
  if (platform::mkdir_p(directory, platform::mode_directory) != 0) {
    D3_ERROR("Failed to create directory %C, %m\n", directory);
    return false;
  }
  return sap_hana::change_directory_permission(directory, platform::mode_directory);
}

bool save(const std::string& path, const json_spirit::Value& document) {
  return sap_hana::dump_json(path, document, 0, false, platform::mode_sap_file);
}

/// Null when the catalog file is written, else what failed.
const char* save_catalog(const Params& params, const json_spirit::Value& document) {
  std::string path;
  char directory[platform::path_buffer_bytes];
  // Without a name for the file there is no directory to take from it.
  if (!sap_hana::catalog_conf_file_name(params.origin_sid, params.origin_database, params.target_sid,
                                        params.target_database, path) ||
      platform::dirname_r(path.c_str(), directory, sizeof directory, '/') == nullptr)
    return no_directory_name;
  if (!make_directory(directory)) return no_directory;
  if (!save(path, document)) return catalog_not_saved;
  return sap_hana::change_file_group_to_sap(path.c_str(), nullptr) ? nullptr : catalog_group_failed;
}

/// The same for the restore file, where there is something to write into it.
const char* save_restore(const Params& params) {
  if (!params.has_extended_attrs) return nullptr;
  std::string path;
  if (!sap_hana::restore_ext_conf_file(params.target_sid, params.target_database, path) ||
      !save(path, params.extended_attrs))
    return restore_not_saved;
  return sap_hana::change_file_group_to_sap(path.c_str(), nullptr) ? nullptr : restore_group_failed;
}

int answer(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) {
  const Params params = read_params(request.params().get_obj());
  const char* failure = save_catalog(params, request.params());
  if (failure == nullptr) failure = save_restore(params);
  if (failure != nullptr) return channel.send_error(JSON_RPC_E_INTERNAL, request.id(), failure);
  const std::shared_ptr<JSON_RPC_Response> response = sap_hana::make_response(request);
  if (response == nullptr) return -1;
  response->result = json_spirit::Object{{"error", 0}};
  return channel.send(response);
}

}  // namespace

JSON_RPC_HANA_File_Download_Handler::~JSON_RPC_HANA_File_Download_Handler() = default;

int JSON_RPC_HANA_File_Download_Handler::handle_object(std::weak_ptr<JSON_RPC_Channel> channel,
                                                       std::shared_ptr<JSON_RPC_Object> object) {
  return sap_hana::handle_with(answer, channel, object);
}

bool JSON_RPC_HANA_File_Download_Handler::download(const std::string& address, const std::string& remote_path,
                                                   const std::string& local_path) {
  char directory[platform::path_buffer_bytes];
  if (platform::dirname_r(local_path.c_str(), directory, sizeof directory, '/') == nullptr) {
    D3_ERROR("Failed to get '%s' dirname\n", platform::cut_for_log(local_path).c_str());
    return false;
  }
  if (platform::mkdir_p(directory, platform::mode_directory) != 0) {
    D3_ERROR("Failed to create directory %s\n", directory);
    return false;
  }
  Client_IO_Ex peer;
  if (!peer.connect(address)) {
    D3_ERROR("Failed to connect %s\n", address.c_str());
    return false;
  }
  if (!peer.get_file(remote_path, local_path, download_flags, download_block_bytes)) {
    D3_ERROR("Failed to download file\n");
    return false;
  }
  if (sap_hana::change_file_group_to_sap(directory, nullptr)) return true;
  D3_ERROR("Failed to download file: failed to change file group\n");
  return false;
}
