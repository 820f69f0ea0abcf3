#pragma once

#include <ace/Log_Msg.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

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

  void write(const std::string& documented, std::string_view content) const {
    std::filesystem::create_directories(std::filesystem::path(path_ + documented).parent_path());
    overwrite(documented, content);
  }
  /// The same in a directory that is there.
  void overwrite(const std::string& documented, std::string_view content) const {
    std::ofstream(path_ + documented, std::ios::binary) << content;
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

/// Ends the run with a finding when `held` is false.
inline void require(bool held) {
  if (!held) std::abort();
}

}  // namespace fuzz
