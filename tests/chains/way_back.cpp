#include "chains/way_back.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <sstream>
#include <thread>

#include "system/processes.h"

namespace chains {

namespace {

constexpr std::size_t page_bytes = 4096;
constexpr const char* pipe_path = "/var/tmp/way_back";
constexpr mode_t pipe_mode = 0600;

/// A value of the header page's lines "key=value".
std::string header_value(const std::string& stream, const std::string& key) {
  std::istringstream lines(stream.substr(0, page_bytes));
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with(key + "=")) return line.substr(key.size() + 1);
  return "";
}

std::uint64_t number_at(const std::string& stream, std::size_t place) {
  std::uint64_t number = 0;
  std::memcpy(&number, stream.data() + place, sizeof number);
  return number;
}

/// Behind the header page: groups of an index page, which counts and numbers the pages that follow, and these.
void lay_over(const std::string& stream, Pages& pages) {
  const std::string volume = header_value(stream, "volume");
  for (std::size_t index = page_bytes; index + page_bytes <= stream.size();) {
    const std::uint64_t count = number_at(stream, index);
    for (std::uint64_t i = 1; i <= count; ++i)
      pages[{volume, number_at(stream, index + i * sizeof i)}] = stream.substr(index + i * page_bytes, page_bytes);
    index += (count + 1) * page_bytes;
  }
}

std::string drain(int pipe, const std::atomic<bool>& ended) {
  std::string stream;
  std::string buffer(1U << 16, '\0');
  for (;;) {
    const bool last_look = ended;
    const ssize_t got = ::read(pipe, buffer.data(), buffer.size());
    if (got > 0)
      stream.append(buffer, 0, static_cast<std::size_t>(got));
    else if (last_look)
      return stream;
    else
      std::this_thread::yield();
  }
}

std::string read_back(const Chain_System& system, const std::string& user, const json_spirit::Object& file) {
  const std::string pipe_file = system.real(pipe_path);
  if (::mkfifo(pipe_file.c_str(), pipe_mode) != 0) throw std::runtime_error("no pipe " + pipe_file);
  const int pipe = ::open(pipe_file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const std::string input = "#SOFTWAREID \"backint 1.04\" \"HANA HDB server\"\n#EBID \"" +
                            text_of(file, "extern_backup_id") + "\" \"" + text_of(file, "origin_path") + "\" \"" +
                            pipe_path + "\"\n";
  std::atomic<bool> ended{false};
  system_tests::Tool_Result result;
  std::thread tool([&] {
    result =
        system_tests::run_tool({system.real("/opt/tarvex/dorsal3/bin/hdbbackint"), "-f", "restore", "-u", user}, input);
    ended = true;
  });
  std::string stream = drain(pipe, ended);
  tool.join();
  ::close(pipe);
  ::unlink(pipe_file.c_str());
  EXPECT_EQ(result.code, 0) << result.out << result.err;
  return stream;
}

}  // namespace

Pages restored_from(const Chain_System& system, const std::vector<json_spirit::Object>& chain) {
  Pages pages;
  for (const json_spirit::Object& set : chain) {
    const std::string database = text_of(set, "database");
    const std::string user = database == "SYSTEMDB" ? "HDB" : database + "@HDB";
    json_spirit::Array files;
    (void)json_spirit::object_get(set, "files", files);
    for (const json_spirit::Value& file : files) {
      const std::string stream = read_back(system, user, file.get_obj());
      EXPECT_EQ(header_value(stream, "backup_id"), text_of(set, "database_backup_id"));
      lay_over(stream, pages);
    }
  }
  return pages;
}

Pages read_from_files(const Chain_System& system, const std::string& database, std::uint64_t id) {
  std::istringstream paths(
      system.sql("select DESTINATION_PATH from SYS_DATABASES.M_BACKUP_CATALOG_FILES where DATABASE_NAME = '" +
                 database + "' and BACKUP_ID = " + std::to_string(id)));
  Pages pages;
  for (std::string path; std::getline(paths, path);) {
    std::erase(path, '"');
    lay_over(system.content(path), pages);
  }
  return pages;
}

}  // namespace chains
