#include "hdbbackint/protocol/interface_version.h"

#include <array>

#include "scrt/loose_version.h"

namespace hdbbackint {

namespace {

constexpr std::array<std::string_view, 3> known_interfaces{"1.50", "1.04", "1.00"};
constexpr std::string_view first_with_timestamps = "1.50";

}  // namespace

std::string answered_interface(std::string_view caller_interface) {
  for (const std::string_view known : known_interfaces) {
    if (!caller_interface.empty() && compare_loose_versions(known, caller_interface) <= 0) return std::string(known);
  }
  return std::string(known_interfaces.back());
}

bool wants_timestamps(std::string_view caller_interface) {
  return !caller_interface.empty() && compare_loose_versions(caller_interface, first_with_timestamps) >= 0;
}

}  // namespace hdbbackint
