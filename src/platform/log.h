#pragma once

#include <ace/Log_Msg.h>

#include <string>
#include <string_view>

// The only way to write a log line: through ACE, with priority, source file and line.
//
// Formats are ACE's: %C narrow text, %d int, %u unsigned, %q / %Q signed / unsigned 64 bit, %m the text of errno,
// %N and %l this file and line. %l is the line number, so the printf forms %ld and %lu do not exist: such a text is
// made with snprintf and logged as "%C". A record is cut at 4,095 bytes; long arguments are cut with cut_for_log, so
// that the line end stays. Arguments must have no side effects. Never pass a secret.

#define D3_EMERGENCY(...) ACE_ERROR((LM_EMERGENCY, __VA_ARGS__))
#define D3_ERROR(...) ACE_ERROR((LM_ERROR, __VA_ARGS__))
#define D3_WARNING(...) ACE_ERROR((LM_WARNING, __VA_ARGS__))
#define D3_INFO(...) ACE_ERROR((LM_INFO, __VA_ARGS__))
#define D3_TRACE(...) ACE_ERROR((LM_DEBUG, __VA_ARGS__))

namespace platform {

constexpr std::size_t log_argument_limit_bytes = 3072;

/// Text for one log argument: cut at `limit` bytes, with "..." where something was cut.
[[nodiscard]] std::string cut_for_log(std::string_view text, std::size_t limit = log_argument_limit_bytes);

/// What a program does with its log: lines go to standard error, and to `file` (documented path) when it is not empty.
/// Called once, at start, from one thread.
void open_program_log(const char* program, const std::string& file = {});

}  // namespace platform
