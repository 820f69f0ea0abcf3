#pragma once

#include <gtest/gtest.h>

#include <string>

#include "agent/backupd_client/http_session.h"
#include "support/fake_http_transport.h"
#include "support/log_capture.h"
#include "support/temp_root.h"
#include "support/virtual_clock.h"

/// A configured host, a scripted backupd, virtual time.
class Client_Fixture : public testing::Test {
 protected:
  static constexpr const char* configuration_path = "/etc/opt/tarvex/dorsal3/agent.toml";
  static constexpr const char* key_path = "/etc/opt/tarvex/dorsal3/agent.key";
  static constexpr const char* shared_key_path = "/var/opt/tarvex/dorsal3/agent/access_key";
  static constexpr const char* url = "https://backupd.test:9000";

  support::Temp_Root root;
  support::Log_Capture log;
  support::Virtual_Clock clock;
  support::Scripted_Http_Handler backupd;
  support::Fake_Http_Transport network{backupd};

  Client_Fixture() {
    root.write(configuration_path,
               "server_url = \"https://backupd.test:9000\"\n"
               "ca_file = \"/etc/opt/tarvex/dorsal3/ca.pem\"\n"
               "host_uuid = \"6f9619ff-8b86-4d01-b42d-00cf4fc964ff\"\n");
    root.write(key_path, "key-of-this-host\n", 0600);
  }

  static HTTP_Session_var make_session() {
    return std::make_shared<HTTP_Session>(net::Endpoint{true, "backupd.test", 9000, ""}, secure_string("k1"));
  }
};
