#include "job/job_activity_record.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <new>

#include "job/job_log.h"
#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"
#include "scrt/uuid.h"

namespace {

constexpr std::size_t file_bytes = Job_Activity_Record::file_bytes;
constexpr std::size_t message_offset = Job_Activity_Record::message_offset;
constexpr std::size_t message_bytes = Job_Activity_Record::message_bytes;
constexpr std::string_view record_suffix = ".act";
constexpr int full_progress = 100;

static_assert(sizeof(Job_Activity) <= message_offset);
static_assert(message_offset + message_bytes <= file_bytes);
// Other processes, and the next version of this one, read these bytes.
static_assert(offsetof(Job_Activity, id) == 8 && offsetof(Job_Activity, type) == 56 &&
              offsetof(Job_Activity, enabled) == 60 && offsetof(Job_Activity, state) == 64 &&
              offsetof(Job_Activity, last_run_time) == 72 && offsetof(Job_Activity, size) == 96 &&
              offsetof(Job_Activity, progress) == 120 && offsetof(Job_Activity, processed_size) == 128 &&
              offsetof(Job_Activity, code) == 144 && offsetof(Job_Activity, message) == 152);

char* message_area(Job_Activity* activity) { return reinterpret_cast<char*>(activity) + message_offset; }

/// Cuts before a byte that continues a UTF-8 character, so that no half character is kept.
std::size_t cut_length(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text.size();
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0U) == 0x80U) --limit;
  return limit;
}

void write_message(Job_Activity* activity, std::string_view text) {
  char* const area = message_area(activity);
  const std::size_t length = cut_length(text, message_bytes - 1);
  if (length != 0) std::memcpy(area, text.data(), length);
  std::memset(area + length, 0, message_bytes - length);
  Job_Activity::store(activity->message, length == 0 ? nullptr : area);
}

Job_Activity_Snapshot snapshot_of(const Job_Activity& activity, std::string message) {
  Job_Activity_Snapshot copy;
  copy.id = uuid_binary_to_string(activity.id);
  copy.def_id = uuid_binary_to_string(activity.def_id);
  copy.uid = uuid_binary_to_string(activity.uid);
  copy.type = activity.type;
  copy.enabled = Job_Activity::load(activity.enabled);
  copy.state = activity.load_state();
  copy.last_run_time = Job_Activity::load(activity.last_run_time);
  copy.next_run_time = Job_Activity::load(activity.next_run_time);
  copy.start_time = Job_Activity::load(activity.start_time);
  copy.size = Job_Activity::load(activity.size);
  copy.set_size = Job_Activity::load(activity.set_size);
  copy.set_storage_size = Job_Activity::load(activity.set_storage_size);
  copy.progress = Job_Activity::load(activity.progress);
  copy.processed_size = Job_Activity::load(activity.processed_size);
  copy.speed = Job_Activity::load(activity.speed);
  copy.code = Job_Activity::load(activity.code);
  copy.message = std::move(message);
  return copy;
}

/// The bytes of a record file, checked before anything of them is believed.
class Stored_Record {
 public:
  /// Null, or why the file at `path` is no record.
  const char* load(const std::string& path);
  [[nodiscard]] Job_Activity& activity() { return *reinterpret_cast<Job_Activity*>(bytes_.data()); }
  [[nodiscard]] std::string message() { return message_area(&activity()); }
  [[nodiscard]] std::string_view bytes() const { return {bytes_.data(), bytes_.size()}; }

 private:
  [[nodiscard]] const char* read(const std::string& path);
  [[nodiscard]] const char* check();

  alignas(Job_Activity) std::array<char, file_bytes> bytes_{};
};

const char* Stored_Record::load(const std::string& path) {
  const char* const problem = read(path);
  return problem != nullptr ? problem : check();
}

const char* Stored_Record::read(const std::string& path) {
  // Not blocking: a pipe that somebody put here must not hold the agent.
  const int file =
      ::open(platform::File_Root::current().real(path).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) return std::strerror(errno);
  struct stat status {};
  const char* problem = nullptr;
  if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode))
    problem = "not a regular file";
  else if (status.st_size != static_cast<off_t>(file_bytes))
    problem = "wrong size";
  else if (::pread(file, bytes_.data(), bytes_.size(), 0) != static_cast<ssize_t>(bytes_.size()))
    problem = "cannot be read";
  ::close(file);
  return problem;
}

const char* Stored_Record::check() {
  Job_Activity& record = activity();
  if (record.magic != Job_Activity::magic_value) return "wrong magic number";
  if (record.version != Job_Activity::version_value) return "unknown version";
  if (!is_job_definition_type(record.type)) return "unknown job type";
  if (!is_job_state(record.state)) return "unknown job state";
  const auto enabled = static_cast<unsigned char>(bytes_[offsetof(Job_Activity, enabled)]);
  if (enabled > 1) return "broken flag";
  if (record.progress < 0 || record.progress > full_progress) return "progress out of range";
  if (std::memchr(message_area(&record), 0, message_bytes) == nullptr) return "message without an end";
  record.message = nullptr;  // an address of the process that wrote it
  return nullptr;
}

/// Loads the record of `id`; says in the log what is wrong with it.
bool load_record(const std::string& id, Stored_Record& record) {
  const std::string path = job_activity_path(id);
  const char* problem = record.load(path);
  if (problem == nullptr && uuid_binary_to_string(record.activity().id) != id) problem = "file name is not its id";
  if (problem == nullptr) return true;
  D3_ERROR("Failed to load job activity %C: %C\n", path.c_str(), problem);
  return false;
}

}  // namespace

Job_Activity_Record::Job_Activity_Record() {
  void* const memory = ::mmap(nullptr, file_bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  activity_ = new (memory) Job_Activity{};
  activity_->magic = Job_Activity::magic_value;
  activity_->version = Job_Activity::version_value;
}

Job_Activity_Record::~Job_Activity_Record() { ::munmap(activity_, file_bytes); }

bool Job_Activity_Record::attach() {
  const std::string path = job_activity_path(uuid_binary_to_string(activity_->id));
  if (attached_ || platform::mkdir_p(job_activity_directory().c_str(), platform::mode_directory) != 0) {
    D3_ERROR("Failed to make job activity %C: %C\n", path.c_str(), attached_ ? "already made" : std::strerror(errno));
    return false;
  }
  const std::string real_path = platform::File_Root::current().real(path);
  const int file =
      ::open(real_path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, platform::mode_private_file);
  if (file < 0) {
    D3_ERROR("Failed to make job activity %C: %m\n", path.c_str());
    return false;
  }
  // Blocks first: a store into a hole of a full disk would be a SIGBUS.
  const int allocated = ::posix_fallocate(file, 0, static_cast<off_t>(file_bytes));
  if (allocated != 0) errno = allocated;
  // The file goes under the addresses that the memory has, so nothing that refers to the activity moves.
  const bool mapped =
      allocated == 0 && ::pwrite(file, activity_, file_bytes, 0) == static_cast<ssize_t>(file_bytes) &&
      ::mmap(activity_, file_bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0) == activity_;
  if (!mapped) {
    D3_ERROR("Failed to map job activity %C: %m\n", path.c_str());
    ::unlink(real_path.c_str());
  }
  ::close(file);
  attached_ = mapped;
  if (mapped && !platform::sync_directory(job_activity_directory()))
    D3_WARNING("Failed to sync %C: %m\n", job_activity_directory().c_str());
  return mapped;
}

void Job_Activity_Record::uid(const std::string& text) {
  const std::lock_guard guard(mutex_);
  uuid_string_to_binary(text.c_str(), activity_->uid);
}

void Job_Activity_Record::message(std::string_view text) {
  const std::lock_guard guard(mutex_);
  write_message(activity_, text);
}

std::string Job_Activity_Record::message() const {
  const std::lock_guard guard(mutex_);
  return message_area(activity_);
}

Job_Activity_Snapshot Job_Activity_Record::snapshot() const {
  const std::lock_guard guard(mutex_);
  return snapshot_of(*activity_, message_area(activity_));
}

void Job_Activity_Record::flush() {
  if (attached_ && ::msync(activity_, file_bytes, MS_SYNC) != 0)
    D3_ERROR("Failed to write job activity %C: %m\n", uuid_binary_to_string(activity_->id).c_str());
}

std::string job_activity_directory() { return platform::product_paths::agent_state("act"); }

std::string job_activity_path(const std::string& id) {
  return job_activity_directory() + '/' + platform::encode_file_name(id) + std::string(record_suffix);
}

bool list_job_activities(std::vector<Job_Activity_Snapshot>& activities) {
  std::vector<std::string> names;
  if (!platform::list_directory(job_activity_directory(), names)) {
    if (errno == ENOENT) return true;
    D3_ERROR("Failed to list job activities in %C: %m\n", job_activity_directory().c_str());
    return false;
  }
  for (const std::string& name : names) {
    if (!std::string_view(name).ends_with(record_suffix)) continue;
    Stored_Record record;
    if (load_record(name.substr(0, name.size() - record_suffix.size()), record))
      activities.push_back(snapshot_of(record.activity(), record.message()));
  }
  return true;
}

bool finish_job_activity(const std::string& id, Job_State state, int code, std::string_view message) {
  Stored_Record record;
  if (!load_record(id, record)) return false;
  record.activity().state = state;
  record.activity().code = code;
  write_message(&record.activity(), message);
  record.activity().message = nullptr;
  if (platform::write_file_durably(job_activity_path(id), record.bytes(), platform::mode_private_file)) return true;
  D3_ERROR("Failed to write job activity %C: %m\n", id.c_str());
  return false;
}

bool remove_job_activity(const std::string& id) {
  const bool record_gone = platform::remove_file(job_activity_path(id));
  return platform::remove_file(job_log_path(id)) && record_gone;
}
