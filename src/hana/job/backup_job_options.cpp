#include "hana/job/backup_job_options.h"

#include "json/yajl_generator.h"

namespace sap_hana {

int Backup_Job_Options::generate(yajl_gen generator) {
  yajl_gen_map_open(generator);
  if (const char* const name = compression_value_to_name(compression_); name != nullptr) {
    yajl_write(generator, "compression");
    yajl_write(generator, name);
  }
  yajl_write(generator, "compression_level");
  yajl_gen_integer(generator, compression_level_);
  yajl_gen_map_close(generator);
  return 0;
}

}  // namespace sap_hana
