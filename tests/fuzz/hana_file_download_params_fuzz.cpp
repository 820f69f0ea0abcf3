#include "drive_rpc.h"
#include "hana/websvcs_agent/json_rpc_hana_file_download_handler.h"

// Params of the file download handler: one answer, and no file anywhere but in the catalog directory.

namespace {

constexpr const char* catalog = "/var/opt/tarvex/dorsal3/agent/hana/catalog";
constexpr std::size_t most_files = 2;

/// Ends the run when a file lies where none may, then removes those of the request.
void check_files(const fuzz::Small_Host& host) {
  namespace fs = std::filesystem;
  const std::string allowed = host.path() + catalog + "/";
  std::size_t count = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(host.path() + "/var")) {
    if (entry.is_directory()) continue;
    if (!entry.path().string().starts_with(allowed)) std::abort();
    ++count;
  }
  if (count > most_files) std::abort();
  for (const fs::directory_entry& entry : fs::directory_iterator(host.path()))
    if (entry.path().filename() != "usr" && entry.path().filename() != "etc" && entry.path().filename() != "var")
      std::abort();
  fs::remove_all(host.path() + catalog);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static fuzz::Small_Host host;
  JSON_RPC_HANA_File_Download_Handler handler;
  const auto request = fuzz::request_with(data, size);
  if (request == nullptr) return 0;
  const auto channel = std::make_shared<fuzz::Counting_Channel>();
  if (handler.handle_object(channel, request) != 0 || channel->answers != 1) std::abort();
  if (std::filesystem::exists(host.path() + "/var")) check_files(host);
  return 0;
}
