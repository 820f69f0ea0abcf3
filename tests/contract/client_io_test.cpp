#include "agent/backupd_client/client_io_ex.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <memory>

#include "platform/files.h"
#include "support/fake_http_transport.h"
#include "support/memory_backupd.h"
#include "support/temp_root.h"

namespace {

/// A pool of one kind, ready to be connected to.
class Pool_Fixture {
 public:
  virtual ~Pool_Fixture() = default;
  [[nodiscard]] virtual std::string url() const = 0;
  /// Everything that lies on the pool, also what is hidden.
  [[nodiscard]] virtual std::vector<std::string> everything() const = 0;
};

class File_Pool : public Pool_Fixture {
 public:
  File_Pool() { root_.make_directory("/pool"); }
  [[nodiscard]] std::string url() const override { return "file:///pool"; }
  [[nodiscard]] std::vector<std::string> everything() const override {
    std::vector<std::string> found;
    list("/pool", found);
    return found;
  }

 private:
  static void list(const std::string& directory, std::vector<std::string>& found) {
    std::vector<std::string> names;
    EXPECT_TRUE(platform::list_directory(directory, names)) << directory;
    for (const std::string& name : names) {
      const std::string path = directory + "/" + name;
      if (platform::is_directory(path.c_str())) {
        list(path, found);
      } else {
        found.push_back(path);
      }
    }
  }

  support::Temp_Root root_;
};

class Http_Pool : public Pool_Fixture {
 public:
  Http_Pool() {
    root_.write("/etc/opt/tarvex/dorsal3/agent.toml",
                "server_url = \"http://backupd:8443\"\nhost_uuid = \"0f0e0d0c-0b0a-4908-8706-050403020100\"\n");
    root_.write("/var/opt/tarvex/dorsal3/agent/access_key", "the-key\n", 0640);
  }
  [[nodiscard]] std::string url() const override {
    return std::string("http://backupd:8443") + support::Memory_Backupd::pool_path;
  }
  [[nodiscard]] std::vector<std::string> everything() const override {
    std::vector<std::string> found;
    for (const auto& [path, content] : server_.objects()) found.push_back(path);
    return found;
  }
  support::Memory_Backupd& server() { return server_; }
  support::Fake_Http_Transport& transport() { return transport_; }

 private:
  support::Temp_Root root_;
  support::Memory_Backupd server_{"the-key"};
  support::Fake_Http_Transport transport_{server_};
};

struct Kind {
  const char* name;
  std::unique_ptr<Pool_Fixture> (*make)();
};

class Client_IO : public testing::TestWithParam<Kind> {
 protected:
  void SetUp() override {
    fixture_ = GetParam().make();
    ASSERT_TRUE(pool_.connect(fixture_->url())) << pool_.error();
  }

  void store(const std::string& path, const std::string& content) {
    const auto writer = pool_.create(path);
    ASSERT_NE(writer, nullptr) << pool_.error();
    ASSERT_TRUE(writer->write(content.data(), content.size())) << writer->error();
    ASSERT_TRUE(writer->commit()) << writer->error();
  }
  std::string load(const std::string& path) {
    const auto reader = pool_.open(path);
    if (!reader) return "cannot be opened: " + pool_.error();
    std::string content;
    char buffer[1000];
    for (ssize_t got = 0; (got = reader->read(buffer, sizeof buffer)) != 0;) {
      if (got < 0) return "cannot be read: " + reader->error();
      content.append(buffer, static_cast<std::size_t>(got));
    }
    EXPECT_EQ(reader->size(), content.size());
    return content;
  }

  std::unique_ptr<Pool_Fixture> fixture_;
  Client_IO_Ex pool_;
};

TEST_P(Client_IO, Stores_And_Reads_Back) {
  const std::string large(3'000'001, 'x');
  store("host/land/DB/1/small", "hello");
  store("host/land/DB/1/empty", "");
  store("host/land/DB/1/large", large);
  store("host/land/DB/1/odd %5F \xc3\xa4+&?#name", "odd");
  EXPECT_EQ(load("host/land/DB/1/small"), "hello");
  EXPECT_EQ(load("host/land/DB/1/empty"), "");
  EXPECT_TRUE(load("host/land/DB/1/large") == large);
  EXPECT_EQ(load("host/land/DB/1/odd %5F \xc3\xa4+&?#name"), "odd");
  EXPECT_TRUE(pool_.exists("host/land/DB/1/small"));
  EXPECT_FALSE(pool_.exists("host/land/DB/1/none"));
  EXPECT_FALSE(pool_.error().empty());
}

TEST_P(Client_IO, Nothing_Is_Visible_Before_The_Commit) {
  {
    const auto writer = pool_.create("dir/object");
    ASSERT_NE(writer, nullptr);
    ASSERT_TRUE(writer->write("abc", 3));
    EXPECT_FALSE(pool_.exists("dir/object"));
    std::vector<Pool_Entry> entries;
    EXPECT_TRUE(!pool_.get_dir("dir", entries) || entries.empty());
  }
  EXPECT_FALSE(pool_.exists("dir/object"));
  EXPECT_TRUE(fixture_->everything().empty());
}

TEST_P(Client_IO, Never_Replaces_An_Object) {
  store("dir/object", "first");
  EXPECT_EQ(pool_.create("dir/object"), nullptr);
  EXPECT_FALSE(pool_.transient());
  EXPECT_NE(pool_.error().find("dir/object"), std::string::npos) << pool_.error();
  EXPECT_EQ(load("dir/object"), "first");
}

TEST_P(Client_IO, Second_Of_Two_Writers_Of_One_Name_Fails_At_Its_Commit) {
  const auto one = pool_.create("dir/object");
  Client_IO_Ex other_pool;
  ASSERT_TRUE(other_pool.connect(fixture_->url()));
  auto two = other_pool.create("dir/object");
  ASSERT_TRUE(one && two);
  ASSERT_TRUE(one->write("one", 3));
  ASSERT_TRUE(two->write("two", 3));
  EXPECT_TRUE(one->commit()) << one->error();
  EXPECT_FALSE(two->commit());
  EXPECT_FALSE(two->transient());
  two.reset();
  EXPECT_EQ(load("dir/object"), "one");
  EXPECT_EQ(fixture_->everything().size(), 1U);
}

TEST_P(Client_IO, Refuses_Paths_That_Could_Leave_The_Pool) {
  store("dir/object", "x");
  for (const std::string path : {"", "/", "..", ".", "../object", "dir/../object", "dir/./object", "dir//object",
                                 "/dir/object", "dir/object/", "dir/.hidden"}) {
    EXPECT_EQ(pool_.create(path), nullptr) << path;
    EXPECT_EQ(pool_.open(path), nullptr) << path;
    EXPECT_FALSE(pool_.exists(path)) << path;
    EXPECT_FALSE(pool_.remove(path)) << path;
    EXPECT_NE(pool_.error().find("refused"), std::string::npos) << pool_.error();
  }
  std::vector<Pool_Entry> entries;
  EXPECT_FALSE(pool_.get_dir("..", entries));
  EXPECT_EQ(pool_.open(std::string("dir/ob\0ject", 11)), nullptr);
  EXPECT_EQ(fixture_->everything().size(), 1U);
}

TEST_P(Client_IO, Lists_A_Directory_By_Name) {
  store("dir/b", "12");
  store("dir/a", "1");
  store("dir/sub/c", "123");
  std::vector<Pool_Entry> entries;
  ASSERT_TRUE(pool_.get_dir("dir", entries)) << pool_.error();
  ASSERT_EQ(entries.size(), 3U);
  EXPECT_EQ(entries[0].name, "a");
  EXPECT_EQ(entries[0].size, 1U);
  EXPECT_FALSE(entries[0].directory);
  EXPECT_EQ(entries[1].name, "b");
  EXPECT_EQ(entries[2].name, "sub");
  EXPECT_TRUE(entries[2].directory);
  EXPECT_FALSE(pool_.get_dir("none", entries));
  ASSERT_TRUE(pool_.get_dir("", entries));
  EXPECT_EQ(entries.size(), 1U);
}

TEST_P(Client_IO, Removes_Objects_And_Refuses_Full_Directories) {
  store("dir/object", "x");
  EXPECT_FALSE(pool_.remove("dir"));
  EXPECT_TRUE(pool_.remove("dir/object")) << pool_.error();
  EXPECT_FALSE(pool_.remove("dir/object"));
  EXPECT_FALSE(pool_.transient());
  EXPECT_EQ(pool_.open("dir/object"), nullptr);
}

TEST_P(Client_IO, Reader_That_Is_Given_Up_Half_Way_Leaves_The_Pool_Usable) {
  store("dir/object", std::string(5'000'000, 'x'));
  {
    const auto reader = pool_.open("dir/object");
    ASSERT_NE(reader, nullptr);
    char buffer[10];
    EXPECT_GT(reader->read(buffer, sizeof buffer), 0);
  }
  EXPECT_EQ(load("dir/object").size(), 5'000'000U);
}

INSTANTIATE_TEST_SUITE_P(Transports, Client_IO,
                         testing::Values(Kind{"File", [] { return std::unique_ptr<Pool_Fixture>(new File_Pool); }},
                                         Kind{"Http", [] { return std::unique_ptr<Pool_Fixture>(new Http_Pool); }}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Client_IO_Connect, Refuses_What_Is_No_Pool) {
  const support::Temp_Root root;
  root.write("/file", "x");
  struct Row {
    const char* url;
    const char* wanted;
  };
  for (const Row& row :
       {Row{"", "unknown scheme"}, Row{"ftp://host/x", "unknown scheme"}, Row{"/pool", "unknown scheme"},
        Row{"file://", "malformed"}, Row{"file://relative", "malformed"}, Row{"file:///missing", "No such file"},
        Row{"file:///file", "storage pool"}}) {
    Client_IO_Ex pool;
    EXPECT_FALSE(pool.connect(row.url)) << row.url;
    EXPECT_NE(pool.error().find(row.wanted), std::string::npos) << row.url << ": " << pool.error();
    EXPECT_FALSE(pool.transient());
    EXPECT_EQ(pool.create("x"), nullptr);
  }
}

TEST(Client_IO_File, Leftovers_Of_Killed_Writers_Do_Not_Keep_A_Directory) {
  const support::Temp_Root root;
  root.make_directory("/pool");
  root.write("/pool/dir/.0f0e0d0c-0b0a-4908-8706-050403020100.tmp", "left");
  Client_IO_Ex pool;
  ASSERT_TRUE(pool.connect("file:///pool/"));
  std::vector<Pool_Entry> entries;
  ASSERT_TRUE(pool.get_dir("dir", entries));
  EXPECT_TRUE(entries.empty());
  const auto writer = pool.create("dir/object");
  ASSERT_NE(writer, nullptr);
  EXPECT_FALSE(pool.remove("dir")) << "a writer is at work there";
  ASSERT_TRUE(writer->write("x", 1));
  ASSERT_TRUE(writer->commit()) << writer->error();
  EXPECT_TRUE(pool.remove("dir/object"));
  EXPECT_TRUE(pool.remove("dir")) << pool.error();
  EXPECT_FALSE(root.exists("/pool/dir"));
}

TEST(Client_IO_File, Objects_Belong_To_The_Group_And_Nobody_Else) {
  const support::Temp_Root root;
  root.make_directory("/pool");
  Client_IO_Ex pool;
  ASSERT_TRUE(pool.connect("file:///pool"));
  const auto writer = pool.create("dir/object");
  ASSERT_NE(writer, nullptr);
  ASSERT_TRUE(writer->commit());
  struct stat status {};
  ASSERT_EQ(::stat(root.real("/pool/dir/object").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
  ASSERT_EQ(::stat(root.real("/pool/dir").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0770U);
}

TEST(Client_IO_File, Full_Disk_Is_A_Final_Failure) {
  const support::Temp_Root root;
  root.make_directory("/pool");
  Client_IO_Ex pool;
  ASSERT_TRUE(pool.connect("file:///pool"));
  const auto writer = pool.create("object");
  ASSERT_NE(writer, nullptr);
  // Writing past the largest allowed file fails as a full disk does, without filling one.
  ::signal(SIGXFSZ, SIG_IGN);
  rlimit old_limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old_limit), 0);
  rlimit limit = old_limit;
  limit.rlim_cur = 4096;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  const std::string content(10000, 'x');
  const bool written = writer->write(content.data(), content.size());
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &old_limit), 0);
  EXPECT_FALSE(written);
  EXPECT_FALSE(writer->transient());
  EXPECT_NE(writer->error().find("/pool/object"), std::string::npos) << writer->error();
}

TEST(Client_IO_Http, Tells_What_May_Be_Tried_Again) {
  Http_Pool fixture;
  Client_IO_Ex pool;
  ASSERT_TRUE(pool.connect(fixture.url()));

  fixture.server().fill_pool(true);
  auto writer = pool.create("dir/object");
  ASSERT_NE(writer, nullptr);
  EXPECT_FALSE(writer->write("x", 1) && writer->commit());
  EXPECT_FALSE(writer->transient()) << "a full pool";
  EXPECT_NE(writer->error().find("the storage pool is full"), std::string::npos) << writer->error();
  fixture.server().fill_pool(false);

  fixture.transport().fault(
      {support::Http_Fault::answer, 0, 503, R"({"error":{"code":"unavailable","message":"starting"}})"});
  EXPECT_FALSE(pool.exists("dir/object"));
  EXPECT_TRUE(pool.transient());

  writer = pool.create("dir/object");
  ASSERT_NE(writer, nullptr);
  EXPECT_TRUE(pool.exists("dir/other") || !pool.transient());
}

TEST(Client_IO_Http, Broken_Connections_Are_Seen_And_Leave_Nothing) {
  Http_Pool fixture;
  Client_IO_Ex pool;
  ASSERT_TRUE(pool.connect(fixture.url()));
  // The first request of create asks whether the object exists.
  fixture.transport().fault({support::Http_Fault::cut_request, 1000}, 1, 1);
  auto writer = pool.create("dir/object");
  ASSERT_NE(writer, nullptr);
  const std::string content(3'000'000, 'x');
  EXPECT_FALSE(writer->write(content.data(), content.size()) && writer->commit());
  EXPECT_TRUE(writer->transient()) << writer->error();
  EXPECT_TRUE(fixture.everything().empty());

  writer = pool.create("dir/object");
  ASSERT_TRUE(writer && writer->write(content.data(), content.size()) && writer->commit());
  fixture.transport().fault({support::Http_Fault::cut_reply, 1000}, 1, 1);
  const auto reader = pool.open("dir/object");
  ASSERT_NE(reader, nullptr) << pool.error();
  char buffer[4096];
  ssize_t got = 0;
  while ((got = reader->read(buffer, sizeof buffer)) > 0) {
  }
  EXPECT_EQ(got, -1);
  EXPECT_TRUE(reader->transient()) << reader->error();
}

TEST(Client_IO_Http, Shows_Its_Key_And_Reports_A_Wrong_One) {
  const support::Temp_Root root;
  support::Memory_Backupd server("another-key");
  support::Fake_Http_Transport transport(server);
  root.write("/etc/opt/tarvex/dorsal3/agent.toml",
             "server_url = \"http://backupd:8443\"\nhost_uuid = \"0f0e0d0c-0b0a-4908-8706-050403020100\"\n");
  root.write("/var/opt/tarvex/dorsal3/agent/access_key", "the-key\n", 0640);
  Client_IO_Ex pool;
  EXPECT_FALSE(pool.connect(std::string("http://backupd:8443") + support::Memory_Backupd::pool_path));
  EXPECT_FALSE(pool.transient());
  EXPECT_NE(pool.error().find("the key is not known"), std::string::npos) << pool.error();
  EXPECT_EQ(pool.error().find("the-key"), std::string::npos);
}

}  // namespace
