#include "root_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "installed_product.h"
#include "processes.h"
#include "support/sanitizer.h"

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
  expect_no_reports();
}

void Root_Fixture::expect_no_reports() const {
  std::error_code error;
  std::error_code of_entry;
  for (auto entry = fs::recursive_directory_iterator(root_, error); !error && entry != fs::end(entry);
       entry.increment(error))
    if (entry->path().extension() == ".log" && entry->is_regular_file(of_entry)) {
      EXPECT_EQ(support::sanitizer_report(slurp(entry->path())), "") << entry->path();
    }
}

bool Root_Fixture::wants_logs() { return HasFailure() || std::getenv("DORSAL3_TEST_LOGS") != nullptr; }

}  // namespace system_tests
