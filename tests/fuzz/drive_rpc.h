#pragma once

#include <ace/Log_Msg.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include "agent/api/json_rpc_handler.h"
#include "json/value.h"
#include "platform/file_root.h"
#include "platform/process_runner.h"

namespace fuzz {

/// Says for every program that it is not there; one outside of the installed instance ends the run with a finding.
class No_Programs : public platform::Process_Runner {
 public:
  platform::Exit_Status run(const platform::Process_Spec& spec, platform::Output_Sink&) override {
    if (!spec.program.starts_with("/usr/sap/HDB/HDB00/")) std::abort();
    return {};
  }
  bool list(std::vector<platform::Running_Process>&) override { return true; }
};

/// A host with the instance HDB_HDB00 below a temporary root, without programs.
class Small_Host {
 public:
  Small_Host() {
    ACE_LOG_MSG->clr_flags(ACE_LOG_MSG->flags());
    write("/usr/sap/HDB/HDB00/exe/manifest", "fullversion: 2.00.059.00\n");
    write("/usr/sap/sapservices", "");
    write("/etc/group", "sapsys:x:" + std::to_string(::getgid()) + ":\n");
  }
  ~Small_Host() { std::filesystem::remove_all(path_); }

  void write(const std::string& documented, const std::string& content) const {
    std::filesystem::create_directories(std::filesystem::path(path_ + documented).parent_path());
    std::ofstream(path_ + documented) << content;
  }
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  /// Below TMPDIR: in memory the files cost no wait for a disk.
  static std::string make_path() {
    std::string name = std::filesystem::temp_directory_path() / "dorsal3-fuzz-XXXXXX";
    return ::mkdtemp(name.data());
  }
  std::string path_ = make_path();
  platform::Scoped_File_Root root_{path_};
  No_Programs programs_;
  platform::Scoped_Process_Runner runner_{programs_};
};

/// Counts the answers to one request.
class Counting_Channel : public JSON_RPC_Channel {
 public:
  int close() override { return 0; }
  int send(std::shared_ptr<JSON_RPC_Object>) override { return ++answers, 0; }
  int send_error(int, const json_spirit::Value&, const std::string&, const json_spirit::Value&) override {
    return ++answers, 0;
  }
  int answers = 0;
};

/// The request with these params; null when they are no JSON.
inline std::shared_ptr<JSON_RPC_Request> request_with(const std::uint8_t* data, std::size_t size) {
  json_spirit::Value params;
  if (!json_spirit::load_json({reinterpret_cast<const char*>(data), size}, params)) return nullptr;
  return std::make_shared<JSON_RPC_Request>(1, "m", params);
}

}  // namespace fuzz
