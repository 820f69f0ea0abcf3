#include "agent/backupd_client/agent_configuration.h"
#include "agent/backupd_client/client_io_ex.h"

void set_options_by_host(Client_IO_Options& options) {
  Agent_Configuration configuration;
  std::string error;
  // A pool in a directory needs nothing of the configuration; another one tells what is missing when it connects.
  if (Agent_Configuration::load(configuration, error)) options.ca_file = configuration.ca_file;
}

bool set_options_by_pool(Client_IO_Options& /*options*/, const Pool_Info& pool) {
  return !pool.url.empty() && pool.cipher == ENCRYPTION_NONE && !pool.s3_enabled;
}
