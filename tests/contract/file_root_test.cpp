// Files by their documented paths: the same on the system itself and below a folder.

#include "platform/file_root.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/files.h"
#include "support/temp_root.h"

namespace {

using namespace platform;

/// Where files of a test may lie, by a documented path.
class Root_Side {
 public:
  virtual ~Root_Side() = default;
  [[nodiscard]] virtual std::string place() const = 0;
};

/// The system's own paths.
class No_Root final : public Root_Side {
 public:
  No_Root() : plain_(std::make_unique<Scoped_File_Root>("")) {}
  std::string place() const override { return folder_.path() + "/place"; }

 private:
  support::Temp_Root folder_;
  std::unique_ptr<Scoped_File_Root> plain_;  ///< above that of the folder
};

class Below_A_Folder final : public Root_Side {
 public:
  std::string place() const override { return "/place"; }

 private:
  support::Temp_Root root_;
};

struct Root_Side_Name {
  const char* name;
  std::unique_ptr<Root_Side> (*make)();
};

void PrintTo(const Root_Side_Name& side, std::ostream* out) { *out << side.name; }

class File_Root_Contract : public testing::TestWithParam<Root_Side_Name> {
 protected:
  File_Root_Contract() { EXPECT_EQ(mkdir_p(place.c_str(), mode_directory), 0); }
  static mode_t mode_of(const std::string& documented) {
    struct stat status {};
    EXPECT_EQ(::lstat(File_Root::current().real(documented).c_str(), &status), 0) << documented;
    return status.st_mode & 07777U;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> found;
    EXPECT_TRUE(list_directory(place, found));
    return found;
  }
  std::string content(const std::string& path) const {
    std::string text;
    EXPECT_TRUE(read_file(path, text)) << path;
    return text;
  }

  const std::string prefix_before = File_Root::current().prefix();
  std::unique_ptr<Root_Side> side = GetParam().make();
  const std::string place = side->place();
};

TEST_P(File_Root_Contract, Maps_A_Path_And_Back) {
  const File_Root& root = File_Root::current();
  EXPECT_EQ(root.documented(root.real(place)), place);
  EXPECT_TRUE(std::filesystem::is_directory(root.real(place)));
  EXPECT_EQ(root.documented(root.real("/")), "/");
  for (const char* unchanged : {"", "relative/path", "."}) EXPECT_EQ(root.real(unchanged), unchanged);
  EXPECT_EQ(root.documented("elsewhere"), "elsewhere");
}

TEST_P(File_Root_Contract, Ends_With_Its_Scope) {
  side.reset();
  EXPECT_EQ(File_Root::current().prefix(), prefix_before);
}

TEST_P(File_Root_Contract, Writes_A_File_Whole_And_Leaves_Nothing_Beside_It) {
  const std::string path = place + "/file";
  ASSERT_TRUE(write_file_durably(path, "one", mode_private_file));
  EXPECT_EQ(content(path), "one");
  EXPECT_EQ(mode_of(path), mode_private_file);
  ASSERT_TRUE(write_file_durably(path, std::string("t\0o", 3), mode_sap_file));
  EXPECT_EQ(content(path), std::string("t\0o", 3));
  EXPECT_EQ(mode_of(path), mode_sap_file);
  EXPECT_EQ(names(), std::vector<std::string>{"file"});
  EXPECT_TRUE(is_regular_file(path.c_str()));
  EXPECT_FALSE(is_directory(path.c_str()));
}

TEST_P(File_Root_Contract, Says_Why_A_File_Cannot_Be_Had) {
  std::string text;
  errno = 0;
  EXPECT_FALSE(read_file(place + "/none", text));
  EXPECT_EQ(errno, ENOENT);
  ASSERT_TRUE(write_file_durably(place + "/large", "12345", mode_private_file));
  EXPECT_FALSE(read_file(place + "/large", text, 4));
  EXPECT_EQ(errno, EFBIG);
  EXPECT_FALSE(write_file_durably(place + "/none/file", "x", mode_private_file));
  EXPECT_EQ(errno, ENOENT);
  std::vector<std::string> found;
  EXPECT_FALSE(list_directory(place + "/none", found));
  EXPECT_EQ(errno, ENOENT);
}

TEST_P(File_Root_Contract, Makes_Directories_And_Tells_Their_Documented_Paths) {
  std::vector<std::string> made;
  const std::string path = place + "/a/b";
  EXPECT_EQ(mkdir_p(path.c_str(), mode_directory, [&made](const char* each) { made.emplace_back(each); }), 0);
  EXPECT_EQ(made, (std::vector<std::string>{place + "/a", place + "/a/b"}));
  EXPECT_TRUE(is_directory(path.c_str()));
  EXPECT_EQ(mode_of(path), mode_directory);
  ASSERT_TRUE(write_file_durably(place + "/file", "", mode_private_file));
  EXPECT_EQ(mkdir_p((place + "/file/b").c_str(), mode_directory), -1);
  EXPECT_EQ(errno, ENOTDIR);
}

TEST_P(File_Root_Contract, Lists_Names_In_Order) {
  for (const char* name : {"c", "a", ".b"}) ASSERT_TRUE(write_file_durably(place + "/" + name, "", mode_private_file));
  EXPECT_EQ(names(), (std::vector<std::string>{".b", "a", "c"}));
}

TEST_P(File_Root_Contract, Links_Hold_Documented_Paths) {
  const std::string target = place + "/file";
  const std::string link = place + "/link";
  ASSERT_TRUE(write_file_durably(target, "x", mode_private_file));
  ASSERT_EQ(make_link(target.c_str(), link.c_str()), 0);
  EXPECT_TRUE(is_symbolic_link(link.c_str()));
  EXPECT_FALSE(is_symbolic_link(target.c_str()));
  EXPECT_TRUE(is_regular_file(link.c_str()));
  EXPECT_EQ(content(link), "x");
  std::vector<char> buffer(path_buffer_bytes);
  const ssize_t size = read_link(link.c_str(), buffer.data(), buffer.size());
  ASSERT_GT(size, 0);
  EXPECT_EQ(std::string(buffer.data(), static_cast<std::size_t>(size)), target);
  EXPECT_EQ(read_link(target.c_str(), buffer.data(), buffer.size()), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_P(File_Root_Contract, Renames_And_Removes) {
  ASSERT_TRUE(write_file_durably(place + "/one", "1", mode_private_file));
  ASSERT_TRUE(write_file_durably(place + "/two", "2", mode_private_file));
  EXPECT_FALSE(rename_without_replacing(place + "/one", place + "/two"));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(content(place + "/two"), "2");
  EXPECT_TRUE(rename_without_replacing(place + "/one", place + "/three"));
  EXPECT_EQ(names(), (std::vector<std::string>{"three", "two"}));
  EXPECT_TRUE(remove_file(place + "/two"));
  EXPECT_TRUE(remove_file(place + "/two")) << "it is gone";
  EXPECT_EQ(names(), std::vector<std::string>{"three"});
  EXPECT_TRUE(sync_directory(place));
}

INSTANTIATE_TEST_SUITE_P(
    Sides, File_Root_Contract,
    testing::Values(Root_Side_Name{"None", []() -> std::unique_ptr<Root_Side> { return std::make_unique<No_Root>(); }},
                    Root_Side_Name{"Below_A_Folder",
                                   []() -> std::unique_ptr<Root_Side> { return std::make_unique<Below_A_Folder>(); }}),
    [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
