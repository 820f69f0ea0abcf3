#pragma once

#include <string>

namespace sap_hana {

/// Makes HANA find the product's Backint agent: a symbolic link at the place where HANA looks for it.
class Backint_Preparer {
 public:
  /// An empty `sid` makes prepare fail.
  explicit Backint_Preparer(const std::string& sid);
  /// True when the link stands, also when it stood before. What stands at the place instead is never replaced: false,
  /// with a message.
  [[nodiscard]] bool prepare();

 private:
  [[nodiscard]] bool check_link() const;
  [[nodiscard]] bool make_link() const;

  std::string sid_;
  std::string source_;
  std::string target_;
};

}  // namespace sap_hana
