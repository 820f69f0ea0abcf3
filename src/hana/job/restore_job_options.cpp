#include "hana/job/restore_job_options.h"

namespace sap_hana {

int Restore_Job_Options::generate(yajl_gen generator) {
  yajl_gen_map_open(generator);
  yajl_gen_map_close(generator);
  return 0;
}

}  // namespace sap_hana
