#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "backupd/server_core.h"
#include "platform/clock.h"
#include "support/fake_http_transport.h"
#include "support/first_moment.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace backupd_test {

inline constexpr char host_a[] = "11111111-1111-4111-8111-111111111111";
inline constexpr char host_b[] = "22222222-2222-4222-8222-222222222222";
inline constexpr char pool_uuid[] = "33333333-3333-4333-8333-333333333333";
inline constexpr char resource_uuid[] = "44444444-4444-4444-8444-444444444444";
inline constexpr char lifeline[] = "55555555-5555-4555-8555-555555555555";

struct Answer {
  unsigned status = 0;
  json_spirit::Object body;
  std::string text;  ///< the body as it came

  [[nodiscard]] std::string error_code() const;
  [[nodiscard]] std::string error_message() const;
  [[nodiscard]] json_spirit::Array rows() const;
  [[nodiscard]] std::string text_of(const char* key) const;
  [[nodiscard]] long number_of(const char* key) const;
};

/// A date that only a test moves; waits are real ones, for what another thread is about to do.
class Still_Clock : public platform::Clock {
 public:
  /// Limits that are measured fall due.
  void pass(std::chrono::seconds span) { passed_ = passed_.load() + span.count(); }
  /// Waits with exactly this limit are over at once.
  void cut_waits_of(std::chrono::nanoseconds limit) { cut_ = limit.count(); }
  /// Waits that begin from now on are over when the date has moved so far.
  void wait_by_date() { by_date_ = true; }
  /// The date moves.
  void pass_wall(std::chrono::seconds span) { date_ = date_.load() + span.count(); }
  std::chrono::system_clock::time_point now() override { return std::chrono::system_clock::from_time_t(date_); }
  std::chrono::steady_clock::time_point steady_now() override {
    return std::chrono::steady_clock::now() + std::chrono::seconds(passed_);
  }
  void sleep_for(std::chrono::nanoseconds) override {}
  bool wait_for(platform::Wait_Event& event, std::chrono::nanoseconds limit) override {
    if (by_date_) return wait_until(event, date_.load() + std::chrono::ceil<std::chrono::seconds>(limit).count());
    return limit.count() == cut_ ? event.is_set() : event.wait_real(limit);
  }

 private:
  bool wait_until(platform::Wait_Event& event, std::time_t date) {
    while (date_.load() < date)
      if (event.wait_real(std::chrono::milliseconds(1))) return true;
    return event.is_set();
  }

  std::atomic<bool> by_date_{false};
  std::atomic<std::chrono::seconds::rep> passed_{0};
  std::atomic<std::time_t> date_{support::first_moment(1'700'000'000)};
  std::atomic<std::chrono::nanoseconds::rep> cut_{-1};
  platform::Scoped_Clock scope_{*this};
};

/// The whole server over a database in a temporary folder, reached through the network in memory.
class Memory_Server {
 public:
  Memory_Server();
  ~Memory_Server();

  /// Ends the server's process and starts it again over the same database. Agents must have left.
  void restart();
  /// `body`: JSON text.
  Answer request(const std::string& method, const std::string& path, const std::string& body = {},
                 const std::string& key = {});
  Answer agent(const std::string& method, const std::string& path, const std::string& body = {}) {
    return request(method, path, body, agent_key);
  }
  /// Below "/q5/".
  Answer raw(const std::string& method, const std::string& target, const std::string& body, const std::string& key);
  std::string make_key(backupd::Role role, const std::string& host = {});

  support::Log_Capture log;
  support::Temp_Root root;
  Still_Clock clock;
  backupd::Database database;
  backupd::History_Limits history{0, 0};  ///< from the next restart on: its thread removes no runs of a test by itself

 private:
  void begin();

 public:
  std::unique_ptr<backupd::Server_Core> core;
  std::unique_ptr<support::Fake_Http_Transport> network;
  std::string agent_key;
  std::string other_agent_key;
  std::string viewer_key;
  std::string operator_key;

  /// Registers the pool `pool_uuid`, served from "/pool".
  void add_pool(std::int64_t max_bytes = 0);
  /// Registers the instance HDB_HDB00 of a host; hosts of one landscape are one resource. Its uuid.
  std::string add_instance(const std::string& host, const std::string& landscape = "land-1");
  /// Records a Backint job and one object for it.
  void add_object(const std::string& job_uuid, const std::string& ebid, const std::string& job_act_id = "",
                  const std::string& database = "TN1", long backup_id = 100);
};

std::string job_json(const std::string& uuid, const std::string& job_act_id = "", const std::string& database = "TN1",
                     long backup_id = 0);
std::string file_json(const std::string& ebid, const std::string& filename = "pipe_0", long backup_id = 100,
                      const std::string& database = "TN1");
/// A set of one object.
std::string set_json(const std::string& uuid, const std::string& ebid, const std::string& type = "full",
                     const std::string& start = "2026-01-01 10:00:00", long backup_id = 100,
                     const std::string& job_act_id = "", const std::string& database = "TN1");
std::string definition_json(const std::string& extra = "", const std::string& entry = "hana/HDB00/TN1");
/// A uuid that ends with `number`.
std::string uuid_of(int number);

}  // namespace backupd_test
