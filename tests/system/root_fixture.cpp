#include "root_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "processes.h"

namespace system_tests {

namespace fs = std::filesystem;

Root_Fixture::Root_Fixture() {
  std::string pattern = (fs::temp_directory_path() / "dorsal3-system.XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
  root_ = pattern;
}

Root_Fixture::~Root_Fixture() {
  std::error_code error;
  fs::remove_all(root_, error);
}

void Root_Fixture::expect_nothing_left() const {
  std::vector<std::string> left;
  (void)eventually([&] { return (left = processes_below(root_)).empty(); });
  EXPECT_TRUE(left.empty()) << "left behind: " << left.front();
}

bool Root_Fixture::wants_logs() { return HasFailure() || std::getenv("DORSAL3_TEST_LOGS") != nullptr; }

}  // namespace system_tests
