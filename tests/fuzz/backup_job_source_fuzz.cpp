#include "fuzz/drive_parser.h"
#include "job/default_backup_job_source_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::drive_parser<Default_Backup_Job_Source_Parser>(data, size);
}
