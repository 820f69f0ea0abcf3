#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "json/value.h"

namespace agentd {

/// What a message is worth when there are too many: progress goes first, then log lines; the others are never dropped.
enum class Message_Kind { progress, log, final_state, alert };

/// A message on its way to backupd.
struct Message {
  std::uint64_t sequence = 0;
  Message_Kind kind = Message_Kind::progress;
  json_spirit::Object document;
};

/// Messages for backupd, kept on disk until they are delivered, one file each, oldest first. Whatever happens to the
/// process, a message is there whole or not at all. Any thread.
class Outbox {
 public:
  static constexpr std::size_t default_limit = 5000;

  /// `directory`: documented path. `limit`: from so many messages on, one that may be dropped is, for each that comes.
  explicit Outbox(std::string directory, std::size_t limit = default_limit);

  /// Makes the directory and finds what a former process left. False, with one error line, when that is impossible.
  [[nodiscard]] bool open();
  /// Keeps a message; durable when it returns. False, with one error line, when it cannot be written.
  bool put(Message_Kind kind, const json_spirit::Object& document);
  /// The oldest message; false when there is none. A file that cannot be read is set aside with one error line.
  [[nodiscard]] bool oldest(Message& message);
  /// Delivered: forgets it.
  void remove(std::uint64_t sequence);
  [[nodiscard]] std::size_t size() const;
  /// How many messages were dropped because there was no more room.
  [[nodiscard]] std::uint64_t dropped() const;

 private:
  struct Entry {
    std::uint64_t sequence;
    Message_Kind kind;
  };

  [[nodiscard]] std::string path_of(const Entry& entry) const;
  void make_room();
  bool drop_oldest(Message_Kind kind);
  [[nodiscard]] bool read(const Entry& entry, Message& message) const;
  void set_aside(const Entry& entry) const;

  const std::string directory_;
  const std::size_t limit_;
  mutable std::mutex mutex_;
  std::deque<Entry> entries_;        ///< guarded by mutex_, by sequence
  std::uint64_t next_sequence_ = 1;  ///< guarded by mutex_
  std::uint64_t dropped_ = 0;        ///< guarded by mutex_
};

}  // namespace agentd
