#pragma once

#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include "agent/api/json_rpc_handler.h"

/// A handler whose requests wait for an answer of something else: they run on a few threads of the handler's own,
/// started when they are needed, and wait there in the order in which they came.
///
/// A class that derives from it overrides handle_object_i and calls end_work in its destructor: the threads run its
/// code.
class JSON_RPC_Thread_Handler : public JSON_RPC_Handler {
 public:
  static constexpr std::size_t threads_at_most = 4;
  static constexpr std::size_t waiting_at_most = 1000;

  /// 0 when the object was taken, or refused with an error because too many wait; -1 when no thread can be had. The
  /// answer comes later; the object is let go when it has been handled.
  int handle_object(std::weak_ptr<JSON_RPC_Channel> channel, std::shared_ptr<JSON_RPC_Object> object) final;
  ~JSON_RPC_Thread_Handler() override;

 protected:
  JSON_RPC_Thread_Handler() = default;

  /// Handles one object; `channel` is null when the requester has gone. 0, or -1 when nothing was answered. What it
  /// throws is logged. Called on several threads at once.
  int handle_object_i(std::shared_ptr<JSON_RPC_Channel> channel, std::shared_ptr<JSON_RPC_Object> object) override = 0;

  /// Drops what waits and returns when what runs has ended. More than once is fine.
  void end_work();

 private:
  struct Work {
    std::weak_ptr<JSON_RPC_Channel> channel;
    std::shared_ptr<JSON_RPC_Object> object;
  };

  [[nodiscard]] bool take(Work& work);
  [[nodiscard]] bool have_thread();
  void run();
  void run_one(Work work);

  std::mutex mutex_;
  std::condition_variable changed_;  ///< what follows is guarded by mutex_
  std::list<Work> waiting_;          ///< a list: making a handler must not need memory beyond the object
  std::vector<std::thread> threads_;
  std::size_t idle_ = 0;
  bool ended_ = false;
};
