#pragma once

#include <optional>
#include <string>

#include "base/layout.h"

namespace standin {

/// System replication as one site knows it: its own part from global.ini, the other site from the stand-in's own file.
struct Replication {
  std::string mode = "none";  ///< none, primary, sync, syncmem, async
  std::string operation = "logreplay";
  std::string site_id = "1";
  std::string site_name = "SITE1";
  std::string peer_host;
  std::string peer_site = "SITE2";
  std::string peer_id = "2";
  std::string peer_mode = "sync";  ///< what a primary was told of its secondary
  std::string peer_root;           ///< the other site's root when it is a stand-in too

  [[nodiscard]] bool primary() const { return mode == "primary"; }
  [[nodiscard]] bool secondary() const { return mode == "sync" || mode == "syncmem" || mode == "async"; }
  /// Sessions may read on a secondary.
  [[nodiscard]] bool read_access() const { return operation == "logreplay_readaccess"; }
};

inline constexpr const char* replication_modes[] = {"sync", "syncmem", "async"};
[[nodiscard]] bool is_replication_mode(const std::string& mode);

[[nodiscard]] Replication load_replication(const Layout& layout);
[[nodiscard]] bool save_replication(const Layout& layout, const Replication& replication, const std::string& who);
/// The other site's installation; nothing when it is not known or not there.
[[nodiscard]] std::optional<Layout> partner_of(const Layout& layout, const Replication& replication);
/// Whether the other site still takes this one for its partner.
[[nodiscard]] bool is_partner_of(const Replication& other, const Layout& layout);

/// What the verbs of hdbnsutil do; the text of an error, empty when it is done. A primary's data are copied as they are
/// at that moment: databases, accounts, backup catalog, tables.
std::string enable_replication(const Layout& layout, const std::string& site_name);
std::string take_over(const Layout& layout);
struct Registration {
  std::string name, remote_host, mode, operation = "logreplay";
};
std::string register_secondary(const Layout& layout, const Registration& registration);
/// Makes the two sites known to each other at their installation.
std::string set_up_pair(const Layout& primary, const Layout& secondary, const std::string& mode);

}  // namespace standin
