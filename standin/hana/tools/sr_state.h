#pragma once

#include "base/layout.h"

namespace standin {

enum class State_Form { text, sapcontrol };

/// "hdbnsutil -sr_state", or "-sr_stateConfiguration" when `only_configuration`.
void print_replication_state(const Layout& layout, State_Form form, bool only_configuration);

}  // namespace standin
