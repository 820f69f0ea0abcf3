#pragma once

#include <string>

#include "hdbbackint/call.h"
#include "hdbbackint/settings.h"

namespace hdbbackint {

/// HANA backs up its logs and its catalog by itself: no job has stored a record for that. Finds the configuration of
/// the database and stores the record of this backup on backupd, which answers the same one to a call of the same
/// backup. False with a reason.
[[nodiscard]] bool begin_ondemand_job(const Call& call, Job_Settings& settings, std::string& error);

}  // namespace hdbbackint
