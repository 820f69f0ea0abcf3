#include "server/recovery_objects.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "backint/sha256.h"
#include "base/files.h"
#include "base/text.h"
#include "server/configuration.h"

namespace standin {

namespace {

constexpr std::size_t block_bytes = 1 << 20;

std::string key_of(const std::string& path, const std::string& external_id) { return path + "\t" + external_id; }

/// Of all streams that this system has written.
std::map<std::string, std::string> written_checksums(const Layout& layout) {
  enum Column { path = 3, external_id = 4, sha256 = 6, columns };
  std::map<std::string, std::string> checksums;
  for (const std::string& line : split(read_file(layout.shared("backup_checksums.tsv")).value_or(""), '\n')) {
    const auto words = split(line, '\t');
    if (words.size() >= columns) checksums[key_of(words[path], words[external_id])] = words[sha256];
  }
  return checksums;
}

}  // namespace

Recovery_Object object_of(const Catalog_Image::File& file) {
  Recovery_Object object;
  object.written_as = file.path;
  object.external_id = file.external_id;
  object.backint = file.destination == "backint";
  object.size = file.size;
  return object;
}

Recovery_Objects::Recovery_Objects(const Layout& layout, Faults& faults, std::string database, Recovery_Source source,
                                   std::function<bool()> canceled)
    : layout_(layout),
      faults_(faults),
      database_(std::move(database)),
      source_(std::move(source)),
      canceled_(std::move(canceled)),
      checksums_(written_checksums(layout)) {}

Backint_Reader Recovery_Objects::reader_for(const char* setting) {
  Backint_Reader reader;
  reader.layout = layout_;
  reader.database = database_;
  reader.user_id = source_.user_id;
  reader.parameter_file = setting_of(layout_, database_, "backup", setting, "");
  const std::string timeout = setting_of(layout_, database_, "backup", "backint_response_timeout", "0");
  reader.response_timeout_seconds = parse_number(timeout).value_or(0);
  reader.kill_after_bytes = faults_.number("kill_hdbbackint_after_bytes", -1, database_);
  reader.bytes_per_second = faults_.number("stream_bytes_per_second", 0, database_);
  reader.canceled = canceled_;
  return reader;
}

Backint_Wish Recovery_Objects::wish_for(const Recovery_Object& object) const {
  Backint_Wish wish;
  wish.name = object.written_as;
  if (!source_.pipe_directory.empty())
    wish.name = source_.pipe_directory + object.written_as.substr(object.written_as.rfind('/'));
  wish.external_id = object.external_id;
  return wish;
}

std::string Recovery_Objects::verify(const Recovery_Object& object, std::uint64_t bytes,
                                     const std::string& sha256) const {
  if (object.size >= 0 && bytes != static_cast<std::uint64_t>(object.size))
    return "[110204] Not all data could be read: Expected " + std::to_string(object.size) + " but transferred " +
           std::to_string(bytes) + " of " + object.written_as;
  const auto written = checksums_.find(key_of(object.written_as, object.found_id));
  if (written != checksums_.end() && written->second != sha256)
    return "[110603] the checksum of " + object.written_as + " is wrong";
  return {};
}

std::string Recovery_Objects::read_pipes(std::vector<Recovery_Object*>& objects, const std::vector<std::size_t>& places,
                                         const char* setting, const Block_Taker& taker) {
  std::vector<Backint_Wish> wishes;
  for (const Recovery_Object* object : objects) wishes.push_back(wish_for(*object));
  const std::string error = run_backint_restore(
      reader_for(setting), wishes,
      [&](std::size_t wish, const char* data, std::size_t size) { return taker(places[wish], data, size); });
  if (!error.empty()) return error;
  for (std::size_t i = 0; i < wishes.size(); ++i) {
    objects[i]->found = wishes[i].outcome == Backint_Wish::found;
    objects[i]->found_id = wishes[i].found_id;
    if (!objects[i]->found) continue;
    if (std::string wrong = verify(*objects[i], wishes[i].bytes, wishes[i].sha256); !wrong.empty()) return wrong;
  }
  return {};
}

std::string Recovery_Objects::read_file_object(Recovery_Object& object, std::size_t place, const Block_Taker& taker) {
  const Descriptor file(::open(layout_.real(object.written_as).c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.valid()) return {};
  object.found = true;
  Sha256 sum;
  std::vector<char> block(block_bytes);
  std::uint64_t bytes = 0;
  for (ssize_t got = 0; (got = ::read(file.get(), block.data(), block.size())) > 0;) {
    if (canceled_()) return "The recovery was canceled";
    const auto size = static_cast<std::size_t>(got);
    sum.add(block.data(), size);
    bytes += size;
    if (!taker(place, block.data(), size)) return "[110602] the data of '" + object.written_as + "' are damaged";
  }
  return verify(object, bytes, sum.finish());
}

std::string Recovery_Objects::read(std::vector<Recovery_Object>& objects, const char* setting,
                                   const Block_Taker& taker) {
  std::vector<Recovery_Object*> pipes;
  std::vector<std::size_t> places;
  for (std::size_t i = 0; i < objects.size(); ++i) {
    if (objects[i].backint) {
      pipes.push_back(&objects[i]);
      places.push_back(i);
    } else if (std::string error = read_file_object(objects[i], i, taker); !error.empty()) {
      return error;
    }
  }
  return pipes.empty() ? std::string() : read_pipes(pipes, places, setting, taker);
}

std::string Recovery_Objects::check_access(std::vector<Recovery_Object>& objects, const char* setting) {
  std::vector<Backint_Wish> wishes;
  for (Recovery_Object& object : objects) {
    if (object.backint) {
      wishes.push_back(wish_for(object));
      continue;
    }
    struct stat info {};
    if (::stat(layout_.real(object.written_as).c_str(), &info) != 0 || info.st_size != object.size)
      return "[110096] the file " + object.written_as + " is not there or has another size";
  }
  if (wishes.empty()) return {};
  if (std::string error = run_backint_inquire(reader_for(setting), wishes); !error.empty()) return error;
  for (const Backint_Wish& wish : wishes)
    if (wish.outcome != Backint_Wish::found)
      return "[110096] the backup " + wish.name + " with id " + wish.external_id + " was not found";
  return {};
}

}  // namespace standin
