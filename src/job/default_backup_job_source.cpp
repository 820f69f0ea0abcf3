#include "job/default_backup_job_source.h"

#include "json/yajl_generator.h"

int Default_Backup_Job_Source::generate(yajl_gen generator) const {
  yajl_gen_map_open(generator);
  yajl_write(generator, "id");
  yajl_write(generator, id());
  if (!name().empty()) {
    yajl_write(generator, "name");
    yajl_write(generator, name());
  }
  yajl_write(generator, "entries");
  yajl_gen_array_open(generator);
  for (const std::string& entry : entries_) yajl_write(generator, entry);
  yajl_gen_array_close(generator);
  yajl_gen_map_close(generator);
  return 0;
}
