#include <malloc.h>

#include <exception>

#include "hdbbackint/command_line.h"
#include "hdbbackint/console.h"
#include "hdbbackint/run.h"
#include "hdbbackint/signal_watcher.h"
#include "hdbbackint/stop_source.h"
#include "platform/file_root.h"

namespace {

/// Buffers of streams go back to the system when a stream ends, whatever their number was.
constexpr int largest_pooled_allocation_bytes = 256 << 10;

}  // namespace

int main(int argc, char** argv) {
  ::mallopt(M_MMAP_THRESHOLD, largest_pooled_allocation_bytes);
  platform::File_Root::set_current(platform::File_Root::of_running_program());
  hdbbackint::open_log();
  hdbbackint::Stop_Source stop;
  const hdbbackint::Signal_Watcher watcher(stop);
  try {
    return hdbbackint::run({argv + 1, argv + argc}, stop);
  } catch (const std::exception& error) {
    hdbbackint::report_failure(std::string("cannot go on: ") + error.what());
    return hdbbackint::EXIT_SOME_FAILED;
  }
}
