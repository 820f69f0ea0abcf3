#include "base/wire.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace standin {

namespace {

constexpr std::uint32_t largest_message = 1U << 30;

bool read_exactly(int fd, void* data, std::size_t size) {
  char* at = static_cast<char*>(data);
  while (size != 0) {
    const ssize_t got = ::read(fd, at, size);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    at += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
}

void append_size(std::string& buffer, std::size_t size) {
  const auto number = static_cast<std::uint32_t>(size);
  buffer.append(reinterpret_cast<const char*>(&number), sizeof number);
}

/// Fills the address with the name below the directory's descriptor, which must stay open meanwhile.
Descriptor address_of(const std::string& path, sockaddr_un& address) {
  const std::size_t slash = path.rfind('/');
  Descriptor folder(::open(path.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  address = {};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", folder.get(),
                path.c_str() + slash + 1);
  return folder;
}

}  // namespace

bool send_message(int fd, const Message& message) {
  std::string body;
  for (const std::string& part : message) {
    append_size(body, part.size());
    body += part;
  }
  std::string frame;
  append_size(frame, body.size());
  frame += body;
  const char* at = frame.data();
  std::size_t left = frame.size();
  while (left != 0) {
    const ssize_t done = ::send(fd, at, left, MSG_NOSIGNAL);
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return false;
    at += done;
    left -= static_cast<std::size_t>(done);
  }
  return true;
}

std::optional<Message> receive_message(int fd) {
  std::uint32_t size = 0;
  if (!read_exactly(fd, &size, sizeof size) || size > largest_message) return std::nullopt;
  std::string body(size, '\0');
  if (!read_exactly(fd, body.data(), size)) return std::nullopt;
  Message message;
  for (std::size_t at = 0; at < body.size();) {
    std::uint32_t part = 0;
    if (body.size() - at < sizeof part) return std::nullopt;
    std::memcpy(&part, body.data() + at, sizeof part);
    at += sizeof part;
    if (body.size() - at < part) return std::nullopt;
    message.push_back(body.substr(at, part));
    at += part;
  }
  return message;
}

Descriptor listen_at(const std::string& path) {
  sockaddr_un address;
  const Descriptor folder = address_of(path, address);
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!folder.valid() || !socket.valid()) return {};
  ::unlink(path.c_str());
  constexpr int backlog = 128;
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return {};
  if (::listen(socket.get(), backlog) != 0) return {};
  return socket;
}

Descriptor connect_to(const std::string& path) {
  sockaddr_un address;
  const Descriptor folder = address_of(path, address);
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!folder.valid() || !socket.valid()) return {};
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return {};
  return socket;
}

std::optional<Message> ask(const std::string& path, const Message& question) {
  const Descriptor socket = connect_to(path);
  if (!socket.valid() || !send_message(socket.get(), question)) return std::nullopt;
  return receive_message(socket.get());
}

}  // namespace standin
