#include "backupd/pools/pool_store.h"

#include <filesystem>

#include "unit/backupd/memory_server.h"

using namespace backupd_test;

namespace {

/// A server with the pool "main" in /srv/pool.
class Pool_Store_Test : public testing::Test {
 protected:
  Pool_Store_Test() { EXPECT_EQ(add("main", directory("/srv/pool")).status, 201U); }

  static std::string directory(const std::string& path) { return R"("directory":")" + path + "\""; }
  static std::string url(const std::string& path, const std::string& host = "") {
    return R"("url":"file://)" + path + "\"" + (host.empty() ? "" : R"(,"host_uuid":")" + host + "\"");
  }
  Answer add(const std::string& name, const std::string& place) {
    return server.request("POST", "/pools", R"({"name":")" + name + "\"," + place + "}");
  }
  void link(const std::string& target, const std::string& path) const {
    std::filesystem::create_directory_symlink(server.root.real(target), server.root.real(path));
  }
  long count() { return server.request("GET", "/pools").number_of("total"); }

  Memory_Server server;
};

TEST_F(Pool_Store_Test, Refuses_A_Directory_That_Meets_Another_Pools) {
  link("/srv/pool", "/srv/link");
  link("/srv", "/other");
  struct Row {
    const char* name;
    std::string place;
    std::string how;
  };
  for (const Row& row :
       {Row{"the same", directory("/srv/pool"), "is that of"},
        Row{"a slash at the end", directory("/srv/pool/"), "is that of"},
        Row{"two slashes", directory("/srv//pool"), "is that of"},
        Row{"two slashes before", directory("//srv/pool"), "is that of"},
        Row{"a dot", directory("/srv/./pool/."), "is that of"}, Row{"a link", directory("/srv/link"), "is that of"},
        Row{"through a link", directory("/other/pool"), "is that of"},
        Row{"below", directory("/srv/pool/more"), "lies below that of"},
        Row{"below a link", directory("/srv/link/more"), "lies below that of"},
        Row{"above", directory("/srv"), "lies above that of"},
        Row{"above by a link", directory("/other"), "lies above that of"},
        Row{"what agents reach on every host", url("/srv/pool"), "is that of"},
        Row{"what agents reach on this host", url("/srv/link", host_a), "is that of"}}) {
    const Answer answer = add("MAIN", row.place);
    EXPECT_EQ(answer.status, 409U) << row.name << answer.text;
    EXPECT_NE(answer.error_message().find(row.how + " the pool \"main\" (/srv/pool); "), std::string::npos)
        << row.name << answer.text;
    EXPECT_NE(answer.error_message().find("choose a directory apart from it, or use \"main\" itself"),
              std::string::npos);
  }
  EXPECT_EQ(count(), 1);
  EXPECT_FALSE(server.root.exists("/srv/pool/more")) << "nothing is made for a pool that is refused";
}

TEST_F(Pool_Store_Test, Takes_Directories_That_Lie_Apart) {
  const std::vector<std::string> places = {directory("/srv/pool2"), directory("/srv/poo"), url("/srv/pool", host_b),
                                           url("/srv/near", host_a), url("/srv/everywhere")};
  for (const std::string& place : places) {
    const Answer answer = add("pool " + place.substr(place.size() - 9, 8), place);
    EXPECT_EQ(answer.status, 201U) << place << answer.text;
  }
}

TEST_F(Pool_Store_Test, Compares_Pools_On_Another_Host_By_Their_Names) {
  // What the server has at this path says nothing about the other host.
  link("/srv/pool", "/srv/link");
  ASSERT_EQ(add("far", url("/srv/link", host_b)).status, 201U);
  EXPECT_EQ(add("farther", url("/srv/link/", host_b)).status, 409U);
  EXPECT_EQ(add("on every host", url("/srv/link/x")).status, 409U);
  EXPECT_EQ(add("of a third host", url("/srv/link", uuid_of(9))).status, 201U);
}

TEST_F(Pool_Store_Test, The_Same_Pool_Again_Is_Done) {
  EXPECT_EQ(add("main", directory("/srv/pool")).status, 200U);
  EXPECT_EQ(add("main", directory("/srv/elsewhere")).status, 409U) << "another one of its name";
  EXPECT_EQ(count(), 1);
}

TEST_F(Pool_Store_Test, Refuses_The_Root_Of_Everything) {
  for (const char* path : {"/", "//", "/.", "/./."}) EXPECT_EQ(add("all", directory(path)).status, 422U) << path;
}

}  // namespace
