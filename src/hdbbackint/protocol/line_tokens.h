#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hdbbackint {

/// Splits one line of an input file into its parameters. They are separated by blanks or tabs; one in double quotes may
/// hold both, with \" for a quote; a backslash before anything else is an ordinary character. False when a quote is not
/// closed or text follows a closing quote without a blank.
[[nodiscard]] bool split_line(std::string_view line, std::vector<std::string>& tokens);

/// A parameter as it is written: in double quotes, with \" for a quote. One that ends in a backslash would not be read
/// back from quotes and is written bare where it can be.
[[nodiscard]] std::string quote_parameter(std::string_view text);

}  // namespace hdbbackint
