#include "platform/log_file.h"

#include <ace/Log_Msg.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <ostream>

#include "platform/file_root.h"

namespace platform {

namespace {

/// Less what the umask takes away: a log is for the eyes of whoever runs the host.
constexpr mode_t log_file_mode = 0644;

int open_log_file(const std::string& real_path) {
  return ::open(real_path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, log_file_mode);
}

class Log_File_Stream : public std::ostream {
 public:
  explicit Log_File_Stream(const std::string& path) : std::ostream(nullptr), buffer_(path) { rdbuf(&buffer_); }
  [[nodiscard]] bool is_open() const { return buffer_.is_open(); }

 private:
  Log_File_Buffer buffer_;
};

ssize_t write_once(int fd, const std::string& text) {
  ssize_t done = -1;
  do done = ::write(fd, text.data(), text.size());
  while (done < 0 && errno == EINTR);
  return done;
}

}  // namespace

Log_File_Buffer::Log_File_Buffer(const std::string& path)
    : real_path_(File_Root::current().real(path)), file_(open_log_file(real_path_)) {}

Log_File_Buffer::int_type Log_File_Buffer::overflow(int_type c) {
  if (!traits_type::eq_int_type(c, traits_type::eof())) line_ += traits_type::to_char_type(c);
  return traits_type::not_eof(c);
}

std::streamsize Log_File_Buffer::xsputn(const char* data, std::streamsize size) {
  line_.append(data, static_cast<std::size_t>(size));
  return size;
}

int Log_File_Buffer::sync() {
  if (line_.empty()) return 0;
  if (!still_named()) {
    Unique_Descriptor fresh(open_log_file(real_path_));
    if (fresh.valid()) {
      file_ = std::move(fresh);
      cut_ = false;
    }
  }
  write_out();
  line_.clear();
  return 0;
}

void Log_File_Buffer::write_out() {
  if (!file_.valid()) return;
  if (cut_) line_.insert(line_.begin(), '\n');
  const ssize_t done = write_once(file_.get(), line_);
  if (done > 0) cut_ = line_[static_cast<std::size_t>(done) - 1] != '\n';
}

bool Log_File_Buffer::still_named() const {
  struct stat named {};
  struct stat open {};
  return ::stat(real_path_.c_str(), &named) == 0 && ::fstat(file_.get(), &open) == 0 && named.st_dev == open.st_dev &&
         named.st_ino == open.st_ino;
}

bool log_to_file(const std::string& path) {
  // ACE keeps a pointer to the stream and deletes it with its last instance.
  auto stream = std::make_unique<Log_File_Stream>(path);
  if (!stream->is_open()) return false;
  ACE_Log_Msg::instance()->msg_ostream(stream.release(), true);
  return true;
}

}  // namespace platform
