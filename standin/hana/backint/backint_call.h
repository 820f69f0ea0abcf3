#pragma once

#include <functional>
#include <string>
#include <vector>

#include "backint/pipe_writer.h"
#include "base/layout.h"

namespace standin {

/// One stream that a Backint process takes.
struct Backint_Part {
  std::string name;  ///< documented path of the pipe
  Volume_Stream::Content content;
  std::uint64_t size = 0;
  Stream_Result result;
  std::string external_id;
};

/// One call of hdbbackint for a backup.
struct Backint_Call {
  Layout layout;
  std::string database;
  std::string user_id;
  std::int64_t backup_id = 0;
  std::size_t objects = 0;  ///< of the whole backup, over all its processes
  std::string level;
  std::string tool_option;
  std::string parameter_file;
  std::int64_t response_timeout_seconds = 0;  ///< 0: waits for ever
  std::int64_t kill_after_bytes = -1;
  bool signal_on_cancel = true;
};

/// Makes the pipes, runs hdbbackint, serves it and reads its answers. The error's text, empty when all parts were
/// saved.
std::string run_backint(const Backint_Call& call, std::vector<Backint_Part>& parts,
                        const std::function<bool()>& canceled, const std::function<void(std::size_t)>& transferred,
                        const std::function<std::int64_t()>& bytes_per_second);

}  // namespace standin
