#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "platform/process_runner.h"

namespace contract {

/// What a child does, in this order.
struct Child_Plan {
  bool tell_call = false;   ///< prints "argument=..." for each, its environment by name, and "directory=..."
  bool copy_input = false;  ///< prints what it reads
  std::string output;
  std::string errors;
  bool hang = false;  ///< is silent until it is signalled
  int signal = 0;     ///< ends itself by it
  int code = 0;
};

/// One implementation of the process runner, and children for it. It is the process's runner for its life.
class Process_Side {
 public:
  virtual ~Process_Side() = default;
  /// A program that does what `plan` says. Arguments may be added; the rest of what it needs stands in it.
  [[nodiscard]] virtual platform::Process_Spec child(const Child_Plan& plan) = 0;
  /// A program that is not there.
  [[nodiscard]] virtual platform::Process_Spec missing() = 0;
};

struct Process_Side_Name {
  const char* name;
  std::unique_ptr<Process_Side> (*make)();
};

inline void PrintTo(const Process_Side_Name& side, std::ostream* out) { *out << side.name; }

[[nodiscard]] std::unique_ptr<Process_Side> make_scripted_process_side();
[[nodiscard]] std::unique_ptr<Process_Side> make_real_process_side();

}  // namespace contract
