#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/layout.h"

namespace standin {

struct Instance_State {
  std::string phase = "stopped";  ///< starting, running, stopping, stopped
  int pid = 0;
  std::int64_t start_ms = 0;
  std::vector<std::pair<std::string, std::string>> services;  ///< process, database
};

Instance_State instance_state(const Layout& layout);
/// Begins the start and returns once the server shows itself; true when it runs already.
bool start_instance(const Layout& layout);
/// Asks for the stop and returns.
bool stop_instance(const Layout& layout);
/// Ends the server at once, as a crash does.
bool kill_instance(const Layout& layout);
bool wait_for_phase(const Layout& layout, const std::string& phase, int timeout_seconds);
/// Of an instance that shows itself already: until it runs, or has gone down again.
enum class Start_End { running, down, timeout };
Start_End wait_for_start(const Layout& layout, int timeout_seconds);
/// The value of a key of the fault file, without counting.
std::string fault_setting(const Layout& layout, const std::string& key);

}  // namespace standin
