#pragma once

#include <mutex>
#include <set>

#include "net/http_transport.h"
#include "platform/clock.h"

namespace net {

/// The descriptors and sockets that a stopping server must wake. A connection takes itself off before it closes, so no
/// descriptor here is ever one that was given out again. Any thread.
class Open_Connections {
 public:
  /// A connection that waits for its first request. False while stopping.
  [[nodiscard]] bool add(int descriptor);
  void remove(int descriptor);
  /// A request begins. False while stopping: it is not taken any more.
  [[nodiscard]] bool begin(int descriptor);
  /// A request has ended. False while stopping: there will be no other.
  [[nodiscard]] bool end(int descriptor);
  /// The connection became a WebSocket and is woken through it from now on. False while stopping.
  [[nodiscard]] bool add(Web_Socket& socket, int descriptor);
  void remove(Web_Socket& socket);

  /// From now on nothing new is taken; connections without a request and WebSockets are closed.
  void stop_idle();
  /// Cuts the connections whose request still runs.
  void stop_busy();
  /// Set while no request runs.
  [[nodiscard]] platform::Wait_Event& quiet() { return quiet_; }

 private:
  std::mutex mutex_;
  std::set<int> idle_;  // guarded by mutex_, as all below
  std::set<int> busy_;
  std::set<Web_Socket*> sockets_;
  bool stopping_ = false;
  platform::Wait_Event quiet_;
};

}  // namespace net
