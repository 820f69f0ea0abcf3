#include "agentd/backupd_link/outbox.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <optional>

#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/log.h"

namespace agentd {

namespace {

constexpr std::size_t name_bytes = 64;
constexpr std::size_t sequence_digits = 20;
constexpr const char* suffix = ".json";
constexpr const char* aside_suffix = ".unreadable";

struct Kind_Name {
  Message_Kind kind;
  const char* name;
};
constexpr std::array<Kind_Name, 4> kind_names{{{Message_Kind::progress, "progress"},
                                               {Message_Kind::log, "log"},
                                               {Message_Kind::final_state, "final"},
                                               {Message_Kind::alert, "alert"}}};

const char* name_of(Message_Kind kind) {
  return std::find_if(kind_names.begin(), kind_names.end(), [kind](const Kind_Name& n) { return n.kind == kind; })
      ->name;
}

/// "<20 digits>.<kind>.json"
std::optional<std::pair<std::uint64_t, Message_Kind>> parse_name(const std::string& name) {
  for (const Kind_Name& kind : kind_names) {
    const std::string rest = std::string(".") + kind.name + suffix;
    if (name.size() != sequence_digits + rest.size() || name.compare(sequence_digits, rest.size(), rest) != 0) continue;
    std::uint64_t sequence = 0;
    const char* const end = name.data() + sequence_digits;
    const auto parsed = std::from_chars(name.data(), end, sequence);
    if (parsed.ec == std::errc() && parsed.ptr == end) return std::make_pair(sequence, kind.kind);
  }
  return std::nullopt;
}

}  // namespace

Outbox::Outbox(std::string directory, std::size_t limit) : directory_(std::move(directory)), limit_(limit) {}

std::string Outbox::path_of(const Entry& entry) const {
  std::array<char, name_bytes> name{};
  std::snprintf(name.data(), name.size(), "%020" PRIu64 ".%s%s", entry.sequence, name_of(entry.kind), suffix);
  return directory_ + "/" + name.data();
}

bool Outbox::open() {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> names;
  if (platform::mkdir_p(directory_.c_str(), platform::mode_directory) != 0 ||
      !platform::list_directory(directory_, names)) {
    D3_ERROR("Failed to open the message directory %C, %m\n", directory_.c_str());
    return false;
  }
  entries_.clear();
  for (const std::string& name : names)  // sorted, so by sequence
    if (const auto parsed = parse_name(name)) entries_.push_back({parsed->first, parsed->second});
  if (!entries_.empty()) next_sequence_ = entries_.back().sequence + 1;
  return true;
}

bool Outbox::put(Message_Kind kind, const json_spirit::Object& document) {
  const std::lock_guard lock(mutex_);
  make_room();
  const Entry entry{next_sequence_, kind};
  const std::string path = path_of(entry);
  if (!platform::write_file_durably(path, json_spirit::dump_json(document), platform::mode_private_file)) {
    D3_ERROR("Failed to keep a message for backupd in %C, %m\n", path.c_str());
    return false;
  }
  ++next_sequence_;
  entries_.push_back(entry);
  return true;
}

void Outbox::make_room() {
  while (entries_.size() >= limit_)
    if (!drop_oldest(Message_Kind::progress) && !drop_oldest(Message_Kind::log)) return;
}

bool Outbox::drop_oldest(Message_Kind kind) {
  const auto found =
      std::find_if(entries_.begin(), entries_.end(), [kind](const Entry& entry) { return entry.kind == kind; });
  if (found == entries_.end()) return false;
  if (!platform::remove_file(path_of(*found))) D3_WARNING("Failed to remove %C, %m\n", path_of(*found).c_str());
  entries_.erase(found);
  ++dropped_;
  return true;
}

bool Outbox::oldest(Message& message) {
  const std::lock_guard lock(mutex_);
  while (!entries_.empty()) {
    if (read(entries_.front(), message)) return true;
    set_aside(entries_.front());
    entries_.pop_front();
  }
  return false;
}

bool Outbox::read(const Entry& entry, Message& message) const {
  std::string text;
  json_spirit::Value document;
  std::string error;
  if (!platform::read_file(path_of(entry), text)) {
    D3_ERROR("Failed to read the message %C, %m\n", path_of(entry).c_str());
    return false;
  }
  if (!json_spirit::load_json(text, document, &error) || !document.is_object()) {
    D3_ERROR("The message %C is not sound, %C\n", path_of(entry).c_str(),
             error.empty() ? "it is no object" : platform::cut_for_log(error).c_str());
    return false;
  }
  message = {entry.sequence, entry.kind, std::move(document.get_obj())};
  return true;
}

/// It is kept for people to look at, under a name that is no message's.
void Outbox::set_aside(const Entry& entry) const {
  const platform::File_Root& root = platform::File_Root::current();
  const std::string path = path_of(entry);
  if (std::rename(root.real(path).c_str(), root.real(path + aside_suffix).c_str()) != 0 && !platform::remove_file(path))
    D3_WARNING("Failed to set %C aside, %m\n", path.c_str());
}

void Outbox::remove(std::uint64_t sequence) {
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [sequence](const Entry& entry) { return entry.sequence == sequence; });
  if (found == entries_.end()) return;
  if (!platform::remove_file(path_of(*found))) D3_WARNING("Failed to remove %C, %m\n", path_of(*found).c_str());
  entries_.erase(found);
}

std::size_t Outbox::size() const {
  const std::lock_guard lock(mutex_);
  return entries_.size();
}

std::uint64_t Outbox::dropped() const {
  const std::lock_guard lock(mutex_);
  return dropped_;
}

}  // namespace agentd
