#include "backupd/server_core.h"

#include "backupd/http/routes.h"

namespace backupd {

Server_Core::Server_Core(Database& database, Options wanted)
    : options(std::move(wanted)),
      keys(database),
      resources(database),
      pools(database, options.public_url, options.own_host_uuid),
      backint(database),
      sets(database),
      views(database),
      alerts(database),
      definitions(database, pools),
      activities(database),
      restored(database),
      sweeper(database, pools, storage, options.own_host_uuid),
      running_restores(database, agents),
      inspector(pools, storage, agents, options.own_host_uuid),
      restore_planning(database, resources, pools, agents, inspector),
      audit(database),
      gate(resources, audit, agents),
      ondemand_queue(database),
      history(database, options.history),
      starter(definitions, activities, resources, agents, ondemand_queue, sweeper, history),
      setups(database, definitions, resources, agents),
      key_watch(keys),
      agent_service({resources, definitions, activities, sweeper, starter, setups, gate, key_watch}, agents),
      dispatch({definitions, activities, resources, agents, starter}),
      requests(resources, sets, backint, agents, gate),
      handler_(router_, keys,
               [this](net::Web_Socket& socket, const Identity& who) { agent_service.serve(socket, who); }) {
  add_registry_routes(router_, *this);
  add_backint_routes(router_, *this);
  add_catalog_routes(router_, *this);
  add_job_routes(router_, *this);
  add_agent_routes(router_, *this);
  add_restore_routes(router_, *this);
  add_stream_routes(router_, *this);
}

void Server_Core::clean_pools() {
  std::vector<Pool> all;
  if (!pools.all(all)) return;
  for (const Pool& pool : all)
    if (pool.served()) storage.remove_leftovers(pool);
}

}  // namespace backupd
