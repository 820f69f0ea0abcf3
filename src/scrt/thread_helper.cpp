#include "scrt/thread_helper.h"

#include <cxxabi.h>

#include <exception>

#include "platform/log.h"

namespace {

/// An exception that left the thread would end the whole process.
void call_guarded(const std::function<void()>& function) {
  try {
    function();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const std::exception& error) {
    D3_EMERGENCY("Unexpected error in %N:%l, a thread was left by an exception: %C\n",
                 platform::cut_for_log(error.what()).c_str());
  } catch (...) {
    D3_EMERGENCY("Unexpected error in %N:%l, a thread was left by an exception of unknown type\n");
  }
}

}  // namespace

Thread_Helper::Thread_Helper(int flags, int priority)
    : _tid(ACE_OS::NULL_thread), _flag(flags), _priority(priority), finished_(new platform::Wait_Event) {}

Thread_Helper::~Thread_Helper() { join(); }

int Thread_Helper::spawn() {
  // Auto-reset, not signalled. Lives until the new thread has signalled it.
  ACE_Event started(0, 0);
  _started = &started;
  int result = 0;
  if ((_flag & THR_DETACHED) != 0) {
    ACE_thread_t ignored;
    result = ACE_Thread_Manager::instance()->spawn(ACE_Thread_Func, this, _flag, &ignored, nullptr, _priority);
  } else {
    if (!_running) _running = std::make_unique<std::atomic<bool>>(false);
    _running->store(true);
    finished_->reset();
    // The manager writes the id before the call returns; the thread itself never reads it.
    ACE_thread_t id = ACE_OS::NULL_thread;
    result = ACE_Thread_Manager::instance()->spawn(ACE_Thread_Func, this, _flag, &id, nullptr, _priority);
    if (result < 0)
      _running->store(false);
    else
      _tid = id;
  }
  if (result >= 0) started.wait();
  _started = nullptr;
  return result;
}

ACE_THR_FUNC_RETURN Thread_Helper::ACE_Thread_Func(void* argument) {
  auto* const self = static_cast<Thread_Helper*>(argument);
  self->handle_starting();
  // Copies only from here on: a detached thread outlives its helper as soon as it has signalled.
  const std::function<void()> function = self->_function;
  std::atomic<bool>* const running = (self->_flag & THR_DETACHED) != 0 ? nullptr : self->_running.get();
  platform::Wait_Event* const finished = running == nullptr ? nullptr : self->finished_.get();
  self->_started->signal();
  call_guarded(function);
  if (running != nullptr) {
    running->store(false);
    finished->set();
  }
  return nullptr;
}

bool Thread_Helper::exists() const { return !ACE_OS::thr_equal(_tid, ACE_OS::NULL_thread); }
bool Thread_Helper::running() const { return exists() && _running && _running->load(); }

void Thread_Helper::join() {
  if (!exists()) return;
  ACE_Thread_Manager::instance()->join(_tid);
  _tid = ACE_OS::NULL_thread;
}
