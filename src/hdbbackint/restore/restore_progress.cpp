#include "hdbbackint/restore/restore_progress.h"

#include "json/value.h"
#include "net/http_message.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "scrt/uuid.h"

namespace hdbbackint {

namespace {

constexpr const char* report_target = "/q5/r/v2/backint/restored";
constexpr unsigned status_ok = 200;

}  // namespace

Restore_Progress::Restore_Progress(const Call& call)
    : call_(call),
      uuid_(make_uuid()),
      last_(platform::Clock::current().steady_now()),
      thread_([this] { tell_all(); }) {}

Restore_Progress::~Restore_Progress() {
  {
    const std::lock_guard guard(mutex_);
    ended_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void Restore_Progress::add(std::uint64_t bytes) {
  const auto now = platform::Clock::current().steady_now();
  const std::lock_guard guard(mutex_);
  bytes_ += bytes;
  if (now - last_ < report_interval) return;
  last_ = now;
  due_ = true;
  changed_.notify_one();
}

void Restore_Progress::tell_all() {
  std::uint64_t told = 0;
  for (bool last = false; !last;) {
    std::uint64_t bytes = 0;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return due_ || ended_; });
      due_ = false;
      last = ended_;
      bytes = bytes_;
    }
    if (bytes == told) continue;
    Told result = tell(bytes);
    // What a later report would make good for; also a connection that the server has let go meanwhile.
    if (result == Told::no && last) result = tell(bytes);
    if (result == Told::to_nobody) return;
    if (result == Told::yes) told = bytes;
  }
}

Restore_Progress::Told Restore_Progress::tell(std::uint64_t bytes) {
  net::Http_Request request;
  request.method = "POST";
  request.target = report_target;
  request.body = json_spirit::dump_json(json_spirit::Object{{"host_uuid", call_.configuration.host_uuid},
                                                            {"sid", call_.user.sid},
                                                            {"database", call_.user.database},
                                                            {"call", uuid_},
                                                            {"bytes", bytes}});
  net::Http_Response response;
  net::Net_Error error;
  if (!call_.session->exchange(request, response, report_limit, error)) return Told::no;
  json_spirit::Value answer;
  std::string run;
  const bool counts = response.status == status_ok && json_spirit::load_json(response.body, answer) &&
                      answer.is_object() && json_spirit::object_get(answer.get_obj(), "job_act_id", run) &&
                      !run.empty();
  if (!counts) D3_INFO("backupd does not follow this restore, status %u\n", response.status);
  return counts ? Told::yes : Told::to_nobody;
}

}  // namespace hdbbackint
