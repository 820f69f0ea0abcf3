#pragma once

#include <optional>
#include <string>

#include "engine/sql_text.h"
#include "engine/system_state.h"

namespace standin {

/// A value of global.ini as the database has it: its own layer wins.
std::string setting_of(const Layout& layout, const std::string& database, const char* section, const char* key,
                       const std::string& otherwise);
bool is_true(const std::string& value);

/// The rest of "ALTER SYSTEM ALTER CONFIGURATION": ('file','layer'[,'target']) SET ('s','k')='v', ... | UNSET
/// ('s','k'), ... [WITH RECONFIGURE] [COMMENT '...'].
std::optional<Sql_Error> alter_configuration(System_State& state, const std::string& database, Token_Reader& reader);

}  // namespace standin
