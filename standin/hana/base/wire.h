#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/files.h"

namespace standin {

/// A message between a tool and the server: a list of texts.
using Message = std::vector<std::string>;

bool send_message(int fd, const Message& message);
std::optional<Message> receive_message(int fd);

/// Sockets are named through their directory's descriptor, so that a long root does not meet the limit of a socket's
/// name.
Descriptor listen_at(const std::string& path);
Descriptor connect_to(const std::string& path);
/// One question and its answer; empty when nobody listens.
std::optional<Message> ask(const std::string& path, const Message& question);

}  // namespace standin
