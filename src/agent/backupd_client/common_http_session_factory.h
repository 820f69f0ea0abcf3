#pragma once

#include "agent/backupd_client/http_session.h"
#include "net/http_transport.h"
#include "platform/secure_string.h"

/// Makes sessions that have shown to work.
class Common_HTTP_Session_Factory {
 public:
  enum Type { SESSION_BACKUPD = 3 };

  /// Where to connect instead of what the host's configuration says.
  struct Param {
    net::Endpoint endpoint;
    secure_string access_key;
  };

  /// Connects and asks the server for its version with the host's key, `retries` times more when it does not answer.
  /// Null when that fails; the cause is logged. Any thread.
  [[nodiscard]] static HTTP_Session_var create(Type type, const Param* param = nullptr, int retries = 0);

  /// The session to backupd as the host's configuration describes it, not tried yet. Null when the configuration or the
  /// key cannot be read; the cause is logged.
  [[nodiscard]] static HTTP_Session_var configured();
};
