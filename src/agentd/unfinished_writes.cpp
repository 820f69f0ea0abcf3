#include "agentd/unfinished_writes.h"

#include <cerrno>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"

namespace agentd {

namespace {

void remove_below(const std::string& directory) {
  std::vector<std::string> removed;
  // A folder may go while it is looked at.
  if (!platform::remove_unfinished_writes(directory, removed) && errno != ENOENT)
    D3_ERROR("Failed to remove what was not written to its end in %C, %m; remove its files '.*.tmp'\n",
             directory.c_str());
  for (const std::string& path : removed) D3_INFO("Removed '%C', it was not written to its end\n", path.c_str());
  std::vector<std::string> names;
  if (!platform::list_directory(directory, names)) return;
  for (const std::string& name : names) {
    const std::string path = directory + '/' + name;
    if (platform::is_directory(path.c_str()) && !platform::is_symbolic_link(path.c_str())) remove_below(path);
  }
}

}  // namespace

// Whether a writer still runs is told by its id, which a folder shared with other pid namespaces makes worthless. Here
// that does no harm: agents alone write beside files of the state directory, hdbbackint does not, and the lock of the
// installation (agent.lock), which this process holds since before and which holds across such namespaces, leaves no
// other agent that could be writing. So what is found was left by agents that are gone, and goes at once, whatever its
// age: it may hold an access key.
void remove_unfinished_writes() {
  std::string directory = platform::product_paths::agent_state("");
  while (directory.ends_with('/')) directory.pop_back();
  remove_below(directory);
}

}  // namespace agentd
