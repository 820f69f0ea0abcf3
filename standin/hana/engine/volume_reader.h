#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "engine/volume.h"

namespace standin {

/// Reads what Volume_Stream wrote, from blocks of any size.
class Volume_Reader {
 public:
  /// One page; `ballast`: of the service's ballast, else of the tables. False refuses the stream.
  using Page_Taker = std::function<bool(std::uint64_t number, bool ballast, const char* page)>;
  explicit Volume_Reader(Page_Taker taker) : taker_(std::move(taker)) {}
  /// False when this is no such stream or a page was refused; `problem` says why.
  bool take(const char* data, std::size_t size);
  /// The stream has ended: whether that is its end.
  bool finish();
  [[nodiscard]] const std::string& problem() const { return problem_; }
  /// A line of the header page; empty when it is not there.
  [[nodiscard]] std::string header(const std::string& key) const;
  [[nodiscard]] std::int64_t number(const std::string& key) const;
  [[nodiscard]] const std::map<std::string, std::string>& headers() const { return headers_; }

 private:
  bool take_page(const char* page);
  bool read_header(const char* page);
  bool read_index(const char* page);
  bool fail(const std::string& why);
  Page_Taker taker_;
  std::map<std::string, std::string> headers_;
  std::vector<std::uint64_t> group_;  ///< numbers of the pages that follow the index page
  std::size_t next_ = 0;
  std::string part_;  ///< of a page that is not complete yet
  std::string problem_;
};

}  // namespace standin
