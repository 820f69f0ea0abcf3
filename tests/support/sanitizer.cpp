#include "support/sanitizer.h"

#include <algorithm>

namespace support {

std::string sanitizer_report(const std::string& output) {
  std::size_t first = std::string::npos;
  for (const char* mark : {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "WARNING: ThreadSanitizer",
                           "ThreadSanitizer:DEADLYSIGNAL", "FATAL: ThreadSanitizer", ": runtime error: "})
    first = std::min(first, output.find(mark));
  return first == std::string::npos ? std::string() : output.substr(first);
}

}  // namespace support
