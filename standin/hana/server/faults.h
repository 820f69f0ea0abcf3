#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace standin {

/// What goes wrong on demand: "key = value | count=N | skip=N | match=TEXT | database=NAME" lines of a file that is
/// read again at each decision. Counts belong to a line's text and last as long as the line and the server. A line that
/// has applied stands in "<file>.met", too, so that a test knows when a step is held. Safe for all threads.
class Faults {
 public:
  explicit Faults(std::string path) : path_(std::move(path)), met_path_(path_ + ".met") {}
  /// The value of the first line that applies; its count goes down.
  std::optional<std::string> take(const std::string& key, const std::string& database = {},
                                  const std::string& text = {});
  /// Whether a line of this key stands in the file, whatever its counts and matches; takes nothing.
  bool stands(const std::string& key) const;
  std::int64_t number(const std::string& key, std::int64_t otherwise, const std::string& database = {});
  /// Waits the milliseconds of the line that applies, `otherwise` without one. Ends before them when no line of this
  /// key stands any more, so that a test holds a step as long as it needs, and when `given_up` says so.
  void pause(const std::string& key, std::int64_t otherwise, const std::string& database = {},
             const std::string& text = {}, const std::function<bool()>& given_up = {});

 private:
  void tell_met(const std::string& line) const;

  std::string path_;
  std::string met_path_;
  std::mutex mutex_;
  std::map<std::string, std::int64_t> used_;
};

}  // namespace standin
