#pragma once

#include <sys/types.h>

#include <list>
#include <string>

namespace sap_hana {

/// One running process.
struct Service_Info {
  std::string cmd;   ///< the whole command line, arguments joined by blanks
  std::string user;  ///< its name, or its number when it has none
  pid_t pid = 0;
};

/// Looks at the processes of this host. Any thread.
class Service_Lister {
 public:
  /// Fills `services` with the processes whose whole command line, of which 4096 bytes are looked at, matches the
  /// regular expression `pattern`. With an installation below a folder only processes whose program lies there count.
  /// False on success (!); true, with a message, when the processes cannot be listed or the pattern is none. `children`
  /// and `locale` choose among ways of listing that make no difference here and are not looked at.
  [[nodiscard]] static bool list_service(const std::string& pattern, std::list<Service_Info>& services, bool children,
                                         const char* locale);
};

}  // namespace sap_hana
