#pragma once

#include <string_view>

#include "hana/common/instance_control.h"

namespace sap_hana {

/// The state that the exit code of "sapcontrol -function GetProcessList" tells. False for codes that tell none.
[[nodiscard]] bool state_of_process_list(int exit_code, Instance_Controller::Instance_State& state);

/// The state that the process tree of "HDB info" tells for one instance: running with the daemon and a name or index
/// server, stopped without either, unknown between.
[[nodiscard]] Instance_Controller::Instance_State state_of_process_tree(std::string_view text, std::string_view sid,
                                                                        std::string_view instance_name);

}  // namespace sap_hana
