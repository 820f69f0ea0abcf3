#pragma once

#include <string>
#include <string_view>

namespace scrt {

/// Joins parts with exactly one separator between them, whatever separators the parts bring at their joints.
template <typename Char>
class Path_T {
 public:
  using String = std::basic_string<Char>;
  using View = std::basic_string_view<Char>;

  explicit Path_T(Char separator = Char('/')) : separator_(separator) {}

  Path_T& add(View part) {
    if (path_.empty()) {
      path_ = part;
      return *this;
    }
    while (!path_.empty() && path_.back() == separator_) path_.pop_back();
    while (!part.empty() && part.front() == separator_) part.remove_prefix(1);
    path_ += separator_;
    path_ += part;
    return *this;
  }

  [[nodiscard]] const String& str() const { return path_; }

 private:
  Char separator_;
  String path_;
};

/// The parts of a path of bytes joined with '/'.
template <typename... Parts>
[[nodiscard]] std::string join_path(const Parts&... parts) {
  Path_T<char> path('/');
  (path.add(parts), ...);
  return path.str();
}

}  // namespace scrt
