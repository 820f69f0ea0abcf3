#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <string>
#include <type_traits>

#include "job/job_definition_type.h"
#include "job/job_state.h"

/// The activity record of one job, at the start of a memory-mapped file: what the job's thread, the agent's threads
/// and, after a restart, the next agent see of a run. Fields that change while a job runs are read and written through
/// the operations below only, which are atomic. Layout: docs/formats/activity-record.md.
struct Job_Activity {
  static constexpr std::uint32_t magic_value = 0x43413344;  ///< "D3AC" in memory
  static constexpr std::uint32_t version_value = 1;
  static constexpr std::size_t uuid_bytes = 16;

  std::uint32_t magic;
  std::uint32_t version;
  unsigned char id[uuid_bytes];
  unsigned char def_id[uuid_bytes];
  unsigned char uid[uuid_bytes];
  Job_Definition_Type type;
  bool enabled;
  Job_State state;
  std::time_t last_run_time;
  std::time_t next_run_time;
  std::time_t start_time;
  std::uint64_t size;              ///< bytes read from the source
  std::uint64_t set_size;          ///< bytes of the sets, before they are stored
  std::uint64_t set_storage_size;  ///< bytes stored
  int progress;                    ///< per cent
  std::uint64_t processed_size;    ///< bytes done so far, for the progress display
  std::uint64_t speed;             ///< bytes a second
  int code;                        ///< 0, or why the run failed
  char*
      message;  ///< the text behind the record in its file; null when there is none, also in a record read from a file

  [[nodiscard]] Job_State load_state() const { return load(state); }
  void store_state(Job_State value) { store(state, value); }
  /// Makes it `wanted` only when it is `expected`.
  bool change_state(Job_State expected, Job_State wanted) {
    return std::atomic_ref<Job_State>(state).compare_exchange_strong(expected, wanted);
  }
  /// Counters: any thread may add.
  static void add(std::uint64_t& counter, std::uint64_t value) {
    std::atomic_ref<std::uint64_t>(counter).fetch_add(value);
  }
  template <typename T>
  [[nodiscard]] static T load(const T& field) {
    return std::atomic_ref<T>(const_cast<T&>(field)).load();
  }
  template <typename T>
  static void store(T& field, std::type_identity_t<T> value) {
    std::atomic_ref<T>(field).store(value);
  }
};
static_assert(std::is_trivially_copyable_v<Job_Activity> && std::is_standard_layout_v<Job_Activity>);

/// An activity at one moment, for reports: uuids and message as text.
struct Job_Activity_Snapshot {
  std::string id;
  std::string def_id;
  std::string uid;
  Job_Definition_Type type = JOB_DEFINITION_NONE;
  bool enabled = false;
  Job_State state = JOB_STATE_NONE;
  std::time_t last_run_time = 0;
  std::time_t next_run_time = 0;
  std::time_t start_time = 0;
  std::uint64_t size = 0;
  std::uint64_t set_size = 0;
  std::uint64_t set_storage_size = 0;
  int progress = 0;
  std::uint64_t processed_size = 0;
  std::uint64_t speed = 0;
  int code = 0;
  std::string message;
};
