#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "backupd/outcome.h"
#include "json/value.h"

namespace backupd {

enum class Need { optional, required };

/// Takes the members of a request's object apart. Every key asked for counts as known; the first thing that is wrong is
/// kept, and the outputs asked for after it are left alone. One thread.
class Body_Reader {
 public:
  /// `what` names the object in messages: "the pool", "the set". The object must outlive the reader.
  Body_Reader(const json_spirit::Object& body, std::string what) : body_(body), what_(std::move(what)) {}

  void text(std::string_view key, std::string& out, Need need = Need::optional);
  /// 0 up to the signed 64-bit limit, which is what the database keeps.
  void number(std::string_view key, std::int64_t& out, Need need = Need::optional);
  void flag(std::string_view key, bool& out, Need need = Need::optional);
  void object(std::string_view key, json_spirit::Object& out, Need need = Need::optional);
  void array(std::string_view key, json_spirit::Array& out, Need need = Need::optional);
  /// A key of any type.
  void allow(std::string_view key) { known_.push_back(key); }
  /// A member that must be a UUID in text form when it is there and not empty.
  void uuid(std::string_view key, std::string& out, Need need = Need::optional);

  /// What was wrong first; a key that nobody asked for is wrong too.
  [[nodiscard]] Outcome finish() const;
  /// What was wrong first. Keys that nobody asked for are passed over: for messages of agents, which may be newer.
  [[nodiscard]] Outcome finish_known() const { return outcome_; }

 private:
  const json_spirit::Value* member(std::string_view key, Need need);
  void wrong_type(std::string_view key, const json_spirit::Value& found, const char* wanted);
  void refuse(std::string message);

  const json_spirit::Object& body_;
  std::string what_;
  std::vector<std::string_view> known_;
  Outcome outcome_;
};

[[nodiscard]] bool is_uuid(const std::string& text);
/// "YYYY-MM-DD HH:MM:SS" and nothing else.
[[nodiscard]] bool is_utc_time(const std::string& text);

}  // namespace backupd
