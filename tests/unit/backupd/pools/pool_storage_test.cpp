#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "unit/backupd/memory_server.h"

using namespace backupd_test;

namespace {

const std::string base = std::string("/q5/pools/") + pool_uuid + "/";

std::size_t entries_below(const std::string& directory) {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory))
    if (entry.is_regular_file()) ++count;
  return count;
}

TEST(Pool_Storage, Stores_Reads_Lists_And_Removes) {
  Memory_Server server;
  server.add_pool();
  const std::string& key = server.agent_key;
  EXPECT_EQ(server.raw("PUT", base + "h/l/TN1/100/pipe%20one", "content", key).status, 201U);
  EXPECT_EQ(server.root.read("/pool/h/l/TN1/100/pipe one"), "content");
  EXPECT_EQ(server.raw("GET", base + "h/l/TN1/100/pipe%20one", "", key).text, "content");
  EXPECT_EQ(server.raw("HEAD", base + "h/l/TN1/100/pipe%20one", "", key).status, 200U);
  EXPECT_EQ(server.raw("GET", base + "h/l/TN1/100?list", "", key).text,
            R"({"total":1,"rows":[{"name":"pipe one","directory":false,"size":7}]})");
  EXPECT_EQ(server.raw("GET", base + "?list", "", key).text,
            R"({"total":1,"rows":[{"name":"h","directory":true,"size":0}]})");
  EXPECT_EQ(server.raw("DELETE", base + "h/l/TN1/100", "", key).status, 409U);
  EXPECT_EQ(server.raw("DELETE", base + "h/l/TN1/100/pipe%20one", "", key).status, 200U);
  EXPECT_EQ(server.raw("DELETE", base + "h/l/TN1/100", "", key).status, 200U);
  EXPECT_EQ(server.raw("GET", base + "h/l/TN1/100?list", "", key).status, 404U);
  EXPECT_EQ(server.raw("GET", base + "h/l/TN1/100/pipe%20one", "", key).status, 404U);
  EXPECT_EQ(server.raw("HEAD", base + "h", "", key).status, 404U);
}

TEST(Pool_Storage, Keeps_The_First_Of_Two_Objects_With_One_Path) {
  Memory_Server server;
  server.add_pool();
  EXPECT_EQ(server.raw("PUT", base + "a/b", "first", server.agent_key).status, 201U);
  EXPECT_EQ(server.raw("PUT", base + "a/b", "second", server.agent_key).status, 409U);
  EXPECT_EQ(server.root.read("/pool/a/b"), "first");
  EXPECT_EQ(entries_below(server.root.real("/pool")), 1U);
}

TEST(Pool_Storage, Lets_No_Path_Leave_Its_Pool) {
  Memory_Server server;
  server.add_pool();
  server.root.write("/secret", "secret");
  ASSERT_EQ(::symlink(server.root.real("/").c_str(), server.root.real("/pool/link").c_str()), 0);
  ASSERT_EQ(::symlink(server.root.real("/secret").c_str(), server.root.real("/pool/file").c_str()), 0);
  for (const char* path : {"..", "../secret", "a/../../secret", "%2e%2e/secret", "..%2fsecret", "a//b", "a/./b", "a/",
                           "%00", "a%00b", "link/secret", "file", "link", ".d3-upload-x"}) {
    for (const char* method : {"GET", "PUT", "HEAD"}) {
      const Answer answer = server.raw(method, base + path, std::string(method) == "PUT" ? "x" : "", server.agent_key);
      EXPECT_GE(answer.status, 400U) << method << " " << path;
      EXPECT_LT(answer.status, 500U) << method << " " << path;
      EXPECT_EQ(answer.text.find("secret content"), std::string::npos);
    }
    EXPECT_NE(server.raw("GET", base + path + "?list", "", server.agent_key).status, 500U);
  }
  EXPECT_EQ(server.root.read("/secret"), "secret");
}

TEST(Pool_Storage, Leaves_Nothing_Of_A_Cut_Upload) {
  Memory_Server server;
  server.add_pool();
  server.network->fault({support::Http_Fault::cut_request, 3, 0, ""});
  net::Net_Error error;
  const auto connection = server.network->connect({}, std::chrono::seconds(1), error);
  net::Http_Request request;
  request.method = "PUT";
  request.target = base + "a/b";
  request.body = "content";
  request.headers.set("Authorization", "Bearer " + server.agent_key);
  net::Http_Response response;
  (void)connection->exchange(request, response, std::chrono::seconds(1), error);
  EXPECT_EQ(entries_below(server.root.real("/pool")), 0U);
  EXPECT_EQ(server.raw("PUT", base + "a/b", "content", server.agent_key).status, 201U);
}

TEST(Pool_Storage, Removes_No_Dataset_While_An_Object_Is_On_Its_Way_Into_It) {
  using Removal = backupd::Pool_Storage::Removal;
  Memory_Server server;
  server.add_pool();
  std::vector<backupd::Pool> pools;
  ASSERT_TRUE(server.core->pools.all(pools));
  backupd::Pool_Storage& storage = server.core->storage;
  const backupd::Pool_Storage::Path dataset{"a", "b"};
  const auto receive = [&](net::Body_Sink& sink) {
    EXPECT_EQ(storage.remove_dataset(pools.front(), dataset), Removal::in_use);
    return sink.write("content", 7);
  };
  EXPECT_TRUE(storage.put(pools.front(), {"a", "b", "c"}, receive).ok());
  EXPECT_EQ(server.root.read("/pool/a/b/c"), "content");
  EXPECT_EQ(storage.remove_dataset(pools.front(), dataset), Removal::done);
  EXPECT_FALSE(server.root.exists("/pool/a/b"));
  EXPECT_EQ(storage.remove_dataset(pools.front(), {"a", "", "b"}), Removal::failed);
}

TEST(Pool_Storage, Refuses_What_Goes_Beyond_The_Pools_Limit) {
  Memory_Server server;
  server.add_pool(10);
  const std::string& key = server.agent_key;
  EXPECT_EQ(server.raw("PUT", base + "a", "123456", key).status, 201U);
  const Answer full = server.raw("PUT", base + "b", "123456", key);
  EXPECT_EQ(full.status, 507U);
  EXPECT_EQ(full.error_code(), "pool_full");
  EXPECT_EQ(server.log.claim_containing("Failed to store \"b\" in the pool main"), 1U);
  EXPECT_EQ(entries_below(server.root.real("/pool")), 1U);
  EXPECT_EQ(server.raw("DELETE", base + "a", "", key).status, 200U);
  EXPECT_EQ(server.raw("PUT", base + "b", "1234567890", key).status, 201U);
}

TEST(Pool_Storage, Refuses_For_Good_What_It_Is_Not_Allowed_To_Store) {
  Memory_Server server;
  server.add_pool();
  std::vector<backupd::Pool> pools;
  ASSERT_TRUE(server.core->pools.all(pools));
  constexpr mode_t nobody_writes = 0555;
  ASSERT_EQ(::chmod(server.root.real("/pool").c_str(), nobody_writes), 0);
  // Root may write everywhere; this thread is somebody else for files.
  constexpr uid_t somebody = 65534;
  const int before = ::setfsuid(somebody);
  const backupd::Outcome refused =
      server.core->storage.put(pools.front(), {"a"}, [](net::Body_Sink& sink) { return sink.write("x", 1); });
  (void)::setfsuid(static_cast<uid_t>(before));
  EXPECT_EQ(refused.kind, backupd::Outcome::forbidden) << refused.message;
  EXPECT_NE(refused.message.find("not allowed to in the pool \"main\" (Permission denied)"), std::string::npos)
      << refused.message;
  EXPECT_EQ(server.log.claim_containing("Failed to store \"a\" in the pool main: Permission denied"), 1U);
  EXPECT_EQ(entries_below(server.root.real("/pool")), 0U);
}

TEST(Pool_Storage, Counts_What_Lies_In_The_Pool_Already) {
  Memory_Server server;
  server.root.write("/pool/a/b", "12345678");
  server.add_pool(10);
  EXPECT_EQ(server.raw("PUT", base + "c", "123", server.agent_key).status, 507U);
  EXPECT_EQ(server.log.claim_containing("Failed to store"), 1U);
}

TEST(Pool_Storage, Removes_What_A_Crash_Left_Of_Uploads) {
  Memory_Server server;
  server.add_pool();
  server.root.write("/pool/a/.d3-upload-1", "part");
  server.root.write("/pool/a/whole", "whole");
  EXPECT_EQ(server.raw("GET", base + "a?list", "", server.agent_key).number_of("total"), 1);
  server.core->clean_pools();
  EXPECT_FALSE(server.root.exists("/pool/a/.d3-upload-1"));
  EXPECT_TRUE(server.root.exists("/pool/a/whole"));
}

TEST(Pool_Storage, Serves_Only_Its_Own_Pools) {
  Memory_Server server;
  EXPECT_EQ(server.raw("PUT", base + "a", "x", server.agent_key).status, 404U);
  const Answer pool = server.request("POST", "/pools", R"({"name":"far","url":"file:///far"})");
  ASSERT_EQ(pool.status, 201U);
  EXPECT_EQ(pool.text_of("url"), "file:///far");
  EXPECT_EQ(server.raw("PUT", "/q5/pools/" + pool.text_of("uuid") + "/a", "x", server.agent_key).status, 404U);
}

TEST(Pool_Store, Tells_Agents_The_Url_Of_A_Served_Pool) {
  Memory_Server server;
  server.add_pool();
  const Answer pools = server.agent("GET", std::string("/pools?uuid=") + pool_uuid);
  ASSERT_EQ(pools.rows().size(), 1U);
  std::string url;
  json_spirit::object_get(pools.rows().front().get_obj(), "url", url);
  EXPECT_EQ(url, std::string("http://backupd.test:9443/q5/pools/") + pool_uuid);
}

TEST(Pool_Store, Answers_The_Same_Pool_Again_As_Done) {
  Memory_Server server;
  const std::string body = R"({"name":"a","directory":"/pool"})";
  const Answer first = server.request("POST", "/pools", body);
  EXPECT_EQ(first.status, 201U);
  const Answer again = server.request("POST", "/pools", body);
  EXPECT_EQ(again.status, 200U);
  EXPECT_EQ(again.text_of("uuid"), first.text_of("uuid"));
  EXPECT_EQ(server.request("POST", "/pools", R"({"name":"a","directory":"/other"})").status, 409U);
  EXPECT_EQ(server.request("GET", "/pools").number_of("total"), 1);
}

}  // namespace
