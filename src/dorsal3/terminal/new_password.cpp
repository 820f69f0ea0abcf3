#include "dorsal3/terminal/new_password.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "json/value.h"
#include "platform/file_root.h"
#include "platform/unique_descriptor.h"

namespace dorsal3 {

namespace {

constexpr std::size_t file_limit_bytes = 4096;
constexpr mode_t mode_of_others = S_IRWXG | S_IRWXO;
constexpr unsigned char first_printable = 0x20;
constexpr unsigned char delete_character = 0x7F;

bool is_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < first_printable || byte == delete_character;
}

/// It is sent as JSON, which holds characters and not any bytes.
bool is_text(const secure_string& password) {
  static constexpr const char* secure_keys[] = {"password", nullptr};
  std::string document = json_spirit::dump_json(json_spirit::Object{{"password", password}});
  json_spirit::Value read;
  secure_string again;
  const bool same = json_spirit::load_json(document, read, nullptr, {}, secure_keys) &&
                    json_spirit::object_get(read.get_obj(), "password", again) && again == password;
  platform::wipe_memory(document.data(), document.size());
  return same;
}

/// What keeps it from being a password; empty when nothing does.
std::string fault_of(const secure_string& password) {
  if (password.empty()) return "is empty";
  const std::string_view text = password.view();
  if (std::any_of(text.begin(), text.end(), is_control))
    return "is more than one line, or holds control characters, which HANA cannot be given";
  return is_text(password) ? "" : "is no text in UTF-8";
}

/// What the file holds, without the end of its line. False and errno; EFBIG when it is longer than a password may be.
bool read_line_of(int file, secure_string& line) {
  std::array<char, file_limit_bytes + 1> content{};
  std::size_t size = 0;
  ssize_t got = 1;
  while (got > 0 && size < content.size()) {
    got = ::read(file, content.data() + size, content.size() - size);
    if (got > 0) size += static_cast<std::size_t>(got);
    if (got < 0 && errno == EINTR) got = 1;
  }
  if (got >= 0 && size == content.size()) {
    got = -1;
    errno = EFBIG;
  }
  std::string_view text(content.data(), size);
  if (text.ends_with('\n')) text.remove_suffix(1);
  if (text.ends_with('\r')) text.remove_suffix(1);
  if (got >= 0) line = secure_string(text);
  const int saved = errno;
  platform::wipe_memory(content.data(), content.size());
  errno = saved;
  return got >= 0;
}

}  // namespace

bool read_password_file(const std::string& path, secure_string& password, Failure& failure) {
  // Looked at once it is open, so that no other file comes in its place between; a pipe nobody writes to is not
  // waited for.
  const platform::Unique_Descriptor file(
      ::open(platform::File_Root::current().real(path).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  std::string wrong;
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0)
    wrong = std::string("cannot be read: ") + std::strerror(errno);
  else if (!S_ISREG(status.st_mode))
    wrong = "is no file";
  else if ((status.st_mode & mode_of_others) != 0)
    wrong = "is open to other users; do: chmod 600 " + path;
  else if (!read_line_of(file.get(), password))
    wrong = std::string("cannot be read: ") + std::strerror(errno);
  else
    wrong = fault_of(password);
  if (wrong.empty()) return true;
  password.clear();
  failure = {exit_configuration, "configuration", "the password file " + path + " " + wrong};
  return false;
}

bool ask_new_password(const Terminal& terminal, const std::string& prompt, secure_string& password, Failure& failure) {
  secure_string again;
  std::string wrong;
  if (!read_secret(terminal, prompt, password))
    wrong = "no password was given; type it on the terminal, pipe one line in, or name a file with --password-file";
  else if (const std::string fault = fault_of(password); !fault.empty())
    wrong = "the password " + fault;
  else if (terminal.input_is_terminal &&
           (!read_secret(terminal, "The same once more: ", again) || !(again == password)))
    wrong = "the password was not the same the second time; try again";
  if (wrong.empty()) return true;
  password.clear();
  failure = {exit_usage, "usage", wrong};
  return false;
}

}  // namespace dorsal3
