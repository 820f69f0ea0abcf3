#include "hana/job/io_control.h"

#include "records/rate_limits.h"

namespace sap_hana {

json_spirit::Object io_control(const Job_Definition& definition) {
  json_spirit::Object io_ctl{{"max_seconds_retry", definition.max_seconds_retry()},
                             {"resumption_buffer_size", definition.resumption_buffer_size()}};
  definition.rate_limits().to_json_in_object(io_ctl, false);
  return io_ctl;
}

}  // namespace sap_hana
