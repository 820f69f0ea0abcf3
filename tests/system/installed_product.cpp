#include "installed_product.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace system_tests {

namespace fs = std::filesystem;

namespace {

void place(const std::string& from, const std::string& to) {
  if (fs::exists(to)) return;
  std::error_code error;
  fs::create_hard_link(from, to, error);
  if (error) fs::copy_file(from, to);
}

}  // namespace

std::string slurp(const std::string& path) {
  const std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();  // unlike an iterator over it, it ends quietly when a process's file goes meanwhile
  return text.str();
}

void Installed_Product::install() const {
  for (const char* folder : {"/opt/tarvex/dorsal3/bin", "/opt/tarvex/dorsal3/lib/modules", "/log", "/srv/pool"})
    fs::create_directories(real(folder));
  for (const char* file : {AGENT_FILE, BACKUPD_FILE, COMMAND_FILE, BACKINT_FILE})
    place(file, program(fs::path(file).filename()));
  place(LIBRARY_FILE, real(product_directory) + "/lib/libdorsal3.so");
  place(MODULE_FILE, real(product_directory) + "/lib/modules/hana.so");
}

void Installed_Product::write(const std::string& documented, const std::string& text) const {
  fs::create_directories(fs::path(real(documented)).parent_path());
  std::ofstream(real(documented)) << text;
  ::chmod(real(documented).c_str(), S_IRUSR | S_IWUSR);
}

}  // namespace system_tests
