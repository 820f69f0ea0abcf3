#include "support/temp_root.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace support {

namespace fs = std::filesystem;

namespace {

std::string make_folder() {
  std::string pattern = (fs::temp_directory_path() / "dorsal3-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
  return pattern;
}

}  // namespace

Temp_Root::Temp_Root() : path_(make_folder()), scope_(path_) {}

Temp_Root::~Temp_Root() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void Temp_Root::write(std::string_view documented, std::string_view content, unsigned mode) const {
  const fs::path where = real(documented);
  fs::create_directories(where.parent_path());
  std::ofstream(where, std::ios::binary) << content;
  ::chmod(where.c_str(), mode);
}

std::string Temp_Root::read(std::string_view documented) const {
  std::ifstream file(real(documented), std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

bool Temp_Root::exists(std::string_view documented) const { return fs::exists(fs::symlink_status(real(documented))); }

void Temp_Root::make_directory(std::string_view documented) const { fs::create_directories(real(documented)); }

}  // namespace support
