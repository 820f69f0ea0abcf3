#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "agent/api/instance.h"

/// The file of instances: "/var/opt/tarvex/dorsal3/agent/instances.json", mode 0600 (docs/formats/instances.md).
class Instance_Store {
 public:
  /// Reads the file. No file is success with none. False, with a message, when it cannot be read or is not ours;
  /// `instances` is then left alone and the file too.
  [[nodiscard]] static bool load(std::vector<Instance>& instances);
  /// Replaces the file durably. Secrets in logon options are not written. False with a message.
  [[nodiscard]] static bool save(const std::vector<Instance>& instances);

  [[nodiscard]] static std::string path();

  /// The same from and to text. False with what is wrong in `error`.
  [[nodiscard]] static bool parse(std::string_view text, std::vector<Instance>& instances, std::string& error);
  [[nodiscard]] static std::string text(const std::vector<Instance>& instances);
};
