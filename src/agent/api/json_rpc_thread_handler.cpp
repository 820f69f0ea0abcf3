#include "agent/api/json_rpc_thread_handler.h"

#include <exception>
#include <system_error>

#include "net/json_rpc.h"
#include "platform/log.h"

JSON_RPC_Thread_Handler::~JSON_RPC_Thread_Handler() { end_work(); }

int JSON_RPC_Thread_Handler::handle_object(std::weak_ptr<JSON_RPC_Channel> channel,
                                           std::shared_ptr<JSON_RPC_Object> object) {
  {
    const std::lock_guard lock(mutex_);
    if (ended_ || !have_thread()) return -1;
    if (waiting_.size() < waiting_at_most) {
      waiting_.push_back({std::move(channel), std::move(object)});
      changed_.notify_one();
      return 0;
    }
  }
  const std::shared_ptr<JSON_RPC_Channel> requester = channel.lock();
  if (requester == nullptr || object == nullptr) return -1;
  return requester->send_error(JSON_RPC_E_SERVER, object->id(), "too many requests are waiting; try again later");
}

/// True when a thread is there that will come to the work. Under the lock.
bool JSON_RPC_Thread_Handler::have_thread() {
  if (idle_ > waiting_.size() || threads_.size() >= threads_at_most) return true;
  try {
    threads_.emplace_back([this] { run(); });
  } catch (const std::system_error& error) {
    if (threads_.empty()) D3_ERROR("No thread can be started for a JSON-RPC request, %C\n", error.what());
  }
  return !threads_.empty();
}

void JSON_RPC_Thread_Handler::run() {
  Work work;
  while (take(work)) run_one(std::move(work));
}

bool JSON_RPC_Thread_Handler::take(Work& work) {
  std::unique_lock lock(mutex_);
  ++idle_;
  changed_.wait(lock, [this] { return ended_ || !waiting_.empty(); });
  --idle_;
  if (ended_) return false;
  work = std::move(waiting_.front());
  waiting_.pop_front();
  return true;
}

void JSON_RPC_Thread_Handler::run_one(Work work) {
  try {
    (void)handle_object_i(work.channel.lock(), work.object);
  } catch (const std::exception& error) {
    D3_ERROR("A JSON-RPC request failed, %C\n", platform::cut_for_log(error.what()).c_str());
  }
}

void JSON_RPC_Thread_Handler::end_work() {
  std::vector<std::thread> threads;
  std::list<Work> dropped;
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    dropped.swap(waiting_);
    threads.swap(threads_);
    changed_.notify_all();
  }
  for (std::thread& thread : threads) thread.join();
}
