#pragma once

#include <string>
#include <vector>

#include "base/layout.h"

namespace standin {

/// One host of a scale-out system; each has a root of its own.
struct Cluster_Host {
  std::string name, root;
};

/// All hosts of the system in the order of their installation; a system on one host has that one.
std::vector<Cluster_Host> hosts_of(const Layout& layout);
Layout layout_of(const Layout& layout, const Cluster_Host& host);
/// Adds a host whose folders are shared with `first` to the landscape.
bool join_landscape(const Layout& first, const Layout& layout);

/// The host that nameserver.ini names as the active master.
std::string active_master(const Layout& layout);
/// Makes this host the one that nameserver.ini names.
bool note_active_master(const Layout& layout);
/// The place of this host among the candidates for the master's role; -1 when it is none.
int master_rank(const Layout& layout);

/// "starting", "running", "stopping" or "stopped" as the instance on that host says.
std::string phase_of(const Layout& layout);

}  // namespace standin
