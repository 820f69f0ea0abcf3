#pragma once

#include "job/job_definition.h"
#include "json/value.h"

namespace sap_hana {

/// "io_ctl": how the Backint agent treats the streams of a definition's backups. The same in the Backint record of a
/// data backup and in the configuration file of a log backup; keys in their order.
[[nodiscard]] json_spirit::Object io_control(const Job_Definition& definition);

}  // namespace sap_hana
