#include "hana/job/restore_job_source.h"

#include "json/yajl_generator.h"

namespace sap_hana {

namespace {

void write_member(yajl_gen generator, const char* key, const std::string& value) {
  yajl_write(generator, key);
  yajl_write(generator, value);
}

void write_member_unless_empty(yajl_gen generator, const char* key, const std::string& value) {
  if (!value.empty()) write_member(generator, key, value);
}

void write_entry(yajl_gen generator, const Restore_Job_Source::Entry_Item& item) {
  yajl_gen_map_open(generator);
  write_member_unless_empty(generator, "catalog_uuid", item.catalog_uuid);
  yajl_write(generator, "original");
  yajl_gen_map_open(generator);
  write_member(generator, "sid", item.origin.sid);
  write_member(generator, "database", item.origin.database);
  yajl_gen_map_close(generator);
  yajl_write(generator, "restore_as");
  yajl_gen_map_open(generator);
  write_member(generator, "database", item.target.database);
  write_member_unless_empty(generator, "timepoint", item.target.timepoint);
  write_member_unless_empty(generator, "lifeline", item.target.lifeline);
  yajl_gen_map_close(generator);
  yajl_gen_map_close(generator);
}

}  // namespace

void Restore_Job_Source::Entry_Item::reset() {
  catalog_uuid.clear();
  origin.database.clear();
  target.database.clear();
}

int Restore_Job_Source::generate(yajl_gen generator) const {
  yajl_gen_map_open(generator);
  write_member(generator, "id", id());
  write_member_unless_empty(generator, "name", name());
  if (!entries_.empty()) {
    yajl_write(generator, "entries");
    yajl_gen_array_open(generator);
    for (const Entry_Item& item : entries_) write_entry(generator, item);
    yajl_gen_array_close(generator);
  }
  yajl_gen_map_close(generator);
  return 0;
}

}  // namespace sap_hana
