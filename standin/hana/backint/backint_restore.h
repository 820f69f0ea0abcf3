#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/layout.h"

namespace standin {

/// One object that HANA asks hdbbackint for.
struct Backint_Wish {
  enum Outcome { no_answer, found, not_found, failed };
  std::string name;         ///< documented path, as the catalog has it; also the pipe's
  std::string external_id;  ///< empty: the newest one of that name
  std::string found_id;
  Outcome outcome = no_answer;
  bool ended = false;  ///< the stream came to an end
  std::uint64_t bytes = 0;
  std::string sha256;
};

/// Who calls hdbbackint for a recovery, and how.
struct Backint_Reader {
  Layout layout;
  std::string database;  ///< whose backint.log tells of the call
  std::string user_id;
  std::string parameter_file;
  std::int64_t response_timeout_seconds = 0;  ///< after which a silent one is killed; 0: waits for ever
  std::int64_t kill_after_bytes = -1;
  std::int64_t bytes_per_second = 0;  ///< of each pipe; 0: as fast as it goes
  std::function<bool()> canceled;
};

/// Takes a block of the object at that place; false when it is not what it should be, which ends that stream. Each
/// object has a thread of its own.
using Block_Taker = std::function<bool(std::size_t wish, const char* data, std::size_t size)>;

/// "-f restore": makes the pipes, reads them and the answers. The error's text; empty when every object was restored or
/// not found.
std::string run_backint_restore(const Backint_Reader& reader, std::vector<Backint_Wish>& wishes,
                                const Block_Taker& taker);
/// "-f inquire": whether the objects are there. The error's text; empty when each was found or not found.
std::string run_backint_inquire(const Backint_Reader& reader, std::vector<Backint_Wish>& wishes);

}  // namespace standin
