#pragma once

#include <ace/Basic_Types.h>

#include <string>
#include <string_view>

#include "platform/secure_string.h"

namespace sap_hana {

/// How hdbsql is to log on.
struct HDBSQL_Logon {
  ACE_UINT16 instance_number = 0;
  std::string_view database;  ///< empty: no database is named
  std::string_view username;
  std::string_view password;
};

/// What hdbsql is given on its standard input for one statement: its connect command, the statement on joined lines,
/// its quit command. False when the statement is blank or holds a null byte.
[[nodiscard]] bool make_hdbsql_input(const HDBSQL_Logon& logon, std::string_view sql, secure_string& input);

/// A value of hdbsql's connect command: as it is when it is made of letters, digits and '_', else in double quotes with
/// inner ones doubled.
void append_quoted(std::string_view value, secure_string& input);
/// The same for a name that its owner may have put in quotes already, because quotes keep its letter case.
void append_name(std::string_view name, secure_string& input);

/// A name in a statement: plain when HANA reads it back as it stands, else in double quotes with inner ones doubled.
[[nodiscard]] std::string sql_identifier(std::string_view name);
/// A text in a statement: in single quotes, inner ones doubled.
[[nodiscard]] std::string sql_literal(std::string_view text);

}  // namespace sap_hana
