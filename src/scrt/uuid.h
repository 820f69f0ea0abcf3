#pragma once

#include <string>
#include <string_view>

constexpr std::size_t uuid_bytes = 16;

/// A new random UUID (version 4) in lower-case text form.
[[nodiscard]] std::string make_uuid();

/// Textual UUID to 16 bytes. False, with `binary` left alone, when `text` is null or not a UUID.
bool uuid_string_to_binary(const char* text, unsigned char* binary);

[[nodiscard]] std::string uuid_binary_to_string(const unsigned char* binary);

/// Name-based UUID (version 5, RFC 4122) of `name` in the namespace `space`. Empty when `space` is not a UUID.
[[nodiscard]] std::string uuid_v5(const std::string& space, std::string_view name);
