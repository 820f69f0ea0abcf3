#include "fuzz/drive_parser.h"
#include "hana/job/restore_job_options_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::drive_parser<sap_hana::Restore_Job_Options_Parser>(data, size);
}
