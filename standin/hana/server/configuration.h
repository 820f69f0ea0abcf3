#pragma once

#include <optional>
#include <string>

#include "engine/sql_text.h"
#include "engine/system_state.h"

namespace standin {

/// The rest of "ALTER SYSTEM ALTER CONFIGURATION": ('file','layer'[,'target']) SET ('s','k')='v', ... | UNSET
/// ('s','k'), ... [WITH RECONFIGURE] [COMMENT '...'].
std::optional<Sql_Error> alter_configuration(System_State& state, const std::string& database, Token_Reader& reader);

}  // namespace standin
