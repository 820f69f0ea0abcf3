#include "hdbbackint/restore/restore_function.h"

#include "hdbbackint/parallel_objects.h"
#include "hdbbackint/restore/object_restorer.h"
#include "hdbbackint/restore/restore_progress.h"
#include "hdbbackint/stream/stream_limits.h"

namespace hdbbackint {

void run_restore(const Call& call) {
  const std::vector<Request_Entry>& entries = call.request.entries;
  Restore_Progress progress(call);
  serve_in_order(entries.size(), parallel_objects,
                 [&](std::size_t index) { Object_Restorer(call, entries[index], progress).restore(); });
}

}  // namespace hdbbackint
