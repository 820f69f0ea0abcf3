#pragma once

#include "backupd/http/router.h"

namespace backupd {

class Server_Core;

inline constexpr char rest_prefix[] = "/q5/r/v2";

// Each adds the routes of one concern to the table. `core` must outlive the router.
void add_registry_routes(Router& router, Server_Core& core);  ///< server, hosts, resources, pools
void add_backint_routes(Router& router, Server_Core& core);   ///< Backint job and file records
void add_catalog_routes(Router& router, Server_Core& core);   ///< sets, views, alerts
void add_job_routes(Router& router, Server_Core& core);       ///< definitions, runs
void add_agent_routes(Router& router, Server_Core& core);     ///< what is asked of agents, sweep
void add_restore_routes(Router& router, Server_Core& core);   ///< plans of restores
void add_stream_routes(Router& router, Server_Core& core);    ///< objects of pools

/// The answer for a store that could not be read.
[[nodiscard]] Reply store_unavailable();
/// 201 for a new thing, 200 for one that was there already.
[[nodiscard]] Reply stored_reply(const Outcome& outcome, json_spirit::Value record);

}  // namespace backupd
