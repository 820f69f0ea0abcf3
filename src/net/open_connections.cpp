#include "net/open_connections.h"

#include <sys/socket.h>

namespace net {

bool Open_Connections::add(int descriptor) {
  const std::lock_guard lock(mutex_);
  if (stopping_) return false;
  idle_.insert(descriptor);
  return true;
}

void Open_Connections::remove(int descriptor) {
  const std::lock_guard lock(mutex_);
  idle_.erase(descriptor);
  busy_.erase(descriptor);
  if (busy_.empty()) quiet_.set();
}

bool Open_Connections::begin(int descriptor) {
  const std::lock_guard lock(mutex_);
  if (stopping_) return false;
  idle_.erase(descriptor);
  busy_.insert(descriptor);
  quiet_.reset();
  return true;
}

bool Open_Connections::end(int descriptor) {
  const std::lock_guard lock(mutex_);
  busy_.erase(descriptor);
  if (!stopping_) idle_.insert(descriptor);
  if (busy_.empty()) quiet_.set();
  return !stopping_;
}

bool Open_Connections::add(Web_Socket& socket, int descriptor) {
  const std::lock_guard lock(mutex_);
  busy_.erase(descriptor);
  if (busy_.empty()) quiet_.set();
  if (!stopping_) sockets_.insert(&socket);
  return !stopping_;
}

void Open_Connections::remove(Web_Socket& socket) {
  const std::lock_guard lock(mutex_);
  sockets_.erase(&socket);
}

void Open_Connections::stop_idle() {
  const std::lock_guard lock(mutex_);
  stopping_ = true;
  if (busy_.empty()) quiet_.set();
  for (const int descriptor : idle_) ::shutdown(descriptor, SHUT_RDWR);
  for (Web_Socket* const socket : sockets_) socket->close();
}

void Open_Connections::stop_busy() {
  const std::lock_guard lock(mutex_);
  for (const int descriptor : busy_) ::shutdown(descriptor, SHUT_RDWR);
}

}  // namespace net
