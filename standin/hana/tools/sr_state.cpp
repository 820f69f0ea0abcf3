#include "tools/sr_state.h"

#include <cstdio>

#include "engine/system_replication.h"
#include "tools/instance_control.h"

namespace standin {

namespace {

constexpr const char* rule = "~~~~~~~~~~~~~~~~~~~~~~~~";

/// Both sites as one of them tells of them.
struct Sites : Replication {
  explicit Sites(const Layout& layout) : Replication(load_replication(layout)) {
    mode_told = fault_setting(layout, "replication_mode_missing").empty();
    const auto partner = partner_of(layout, *this);
    if (!partner) {
      attached = primary() && has_peer();
      return;
    }
    const Replication other = load_replication(*partner);
    if (!primary()) return;
    if (!other.secondary() || !is_partner_of(other, layout)) {
      peer_host.clear();  // it was taken over or belongs to somebody else now
      return;
    }
    peer_mode = other.mode;
    attached = instance_state(*partner).phase == "running";
  }
  bool mode_told = true;
  bool attached = false;
  [[nodiscard]] bool has_peer() const { return !peer_host.empty(); }
  [[nodiscard]] const char* told_mode() const { return mode_told ? mode.c_str() : ""; }
  [[nodiscard]] const std::string& primary_site() const { return primary() ? site_name : peer_site; }
  [[nodiscard]] const std::string& secondary_site() const { return primary() ? peer_site : site_name; }
  [[nodiscard]] const std::string& secondary_mode() const { return primary() ? peer_mode : mode; }
  [[nodiscard]] std::string secondary_operation() const { return primary() ? "logreplay" : operation; }
};

void print_mapping(const Layout& layout, const Sites& r) {
  const bool peers = r.has_peer();
  const std::string primary = r.primary_site();
  const std::string secondary = r.secondary_site();
  const std::string secondary_mode = r.secondary_mode();
  const std::string operation = r.secondary_operation();
  std::printf("Host Mappings:\n~~~~~~~~~~~~~~\n\n");
  if (peers) std::printf("%s -> [%s] %s\n", layout.host.c_str(), r.peer_site.c_str(), r.peer_host.c_str());
  std::printf("%s -> [%s] %s\n\n\nSite Mappings:\n~~~~~~~~~~~~~~\n", layout.host.c_str(), r.site_name.c_str(),
              layout.host.c_str());
  std::printf("%s (primary/%s)\n", primary.c_str(), peers ? "primary" : "");
  if (peers) std::printf("    |---%s (%s/%s)\n", secondary.c_str(), secondary_mode.c_str(), operation.c_str());
  std::printf("\nTier of %s: 1\n", primary.c_str());
  if (peers) std::printf("Tier of %s: 2\n", secondary.c_str());
  std::printf("\nReplication mode of %s: primary\n", primary.c_str());
  if (peers) std::printf("Replication mode of %s: %s\n", secondary.c_str(), secondary_mode.c_str());
  std::printf("\nOperation mode of %s: primary\n", primary.c_str());
  if (peers) {
    std::printf("Operation mode of %s: %s\n\nMapping: %s -> %s\n", secondary.c_str(), operation.c_str(),
                primary.c_str(), secondary.c_str());
  } else {
    std::printf("\n");
  }
}

void print_state(const Layout& layout, const Sites& r, bool online, bool only_configuration) {
  if (!online && !only_configuration)
    std::printf("nameserver %s:%d not responding.\n", layout.host.c_str(), layout.port(1));
  std::printf("\nSystem Replication State\n%s\n\n", rule);
  if (!only_configuration) std::printf("online: %s\n\n", online ? "true" : "false");
  std::printf("mode: %s\n", r.told_mode());
  if (r.mode != "none") {
    if (!only_configuration) std::printf("operation mode: %s\n", r.operation.c_str());
    std::printf("site id: %s\nsite name: %s\n", r.site_id.c_str(), r.site_name.c_str());
    if (!r.primary() && !only_configuration)
      std::printf("active primary site: %s\n\nprimary masters: %s\n", r.peer_id.c_str(), r.peer_host.c_str());
    if (!only_configuration && online) {
      std::printf(
          "\n\nis source system: %s\nis secondary/consumer system: %s\nhas secondaries/consumers attached: %s\nis a "
          "takeover active: false\nis primary suspended: false\n\n",
          r.primary() ? "true" : "false", r.primary() ? "false" : "true", r.attached ? "true" : "false");
      print_mapping(layout, r);
    }
  }
  std::printf("done.\n");
}

void print_sites_for_sapcontrol(const Sites& r) {
  const auto site = [](const char* key, const std::string& name, const std::string& value) {
    std::printf("%s/%s=%s\n", key, name.c_str(), value.c_str());
  };
  site("siteTier", r.primary_site(), "1");
  if (r.has_peer()) site("siteTier", r.secondary_site(), "2");
  site("siteReplicationMode", r.primary_site(), "primary");
  if (r.has_peer()) site("siteReplicationMode", r.secondary_site(), r.secondary_mode());
  site("siteOperationMode", r.primary_site(), "primary");
  if (!r.has_peer()) return;
  site("siteOperationMode", r.secondary_site(), r.secondary_operation());
  site("siteMapping", r.primary_site(), r.secondary_site());
}

void print_for_sapcontrol(const Layout& layout, const Sites& r, bool online, bool only_configuration) {
  std::printf("SAPCONTROL-OK: <begin>\n");
  if (!only_configuration) std::printf("online=%s\n", online ? "true" : "false");
  std::printf("mode=%s\n", r.told_mode());
  if (r.mode != "none") {
    if (!only_configuration) std::printf("operation mode=%s\n", r.operation.c_str());
    std::printf("site id=%s\nsite name=%s\n", r.site_id.c_str(), r.site_name.c_str());
    if (!only_configuration && online) {
      std::printf(
          "isSource=%s\nisConsumer=%s\nhasConsumers=%s\nisTakeoverActive=false\nisPrimarySuspended=false\n"
          "mapping/%s=%s/%s\n",
          r.primary() ? "true" : "false", r.primary() ? "false" : "true", r.attached ? "true" : "false",
          layout.host.c_str(), r.site_name.c_str(), layout.host.c_str());
      if (r.has_peer())
        std::printf("mapping/%s=%s/%s\n", layout.host.c_str(), r.peer_site.c_str(), r.peer_host.c_str());
      print_sites_for_sapcontrol(r);
    }
  }
  std::printf("SAPCONTROL-OK: <end>\ndone.\n");
}

}  // namespace

void print_replication_state(const Layout& layout, State_Form form, bool only_configuration) {
  const bool online = instance_state(layout).phase == "running";
  const Sites sites(layout);
  if (form == State_Form::sapcontrol)
    print_for_sapcontrol(layout, sites, online, only_configuration);
  else
    print_state(layout, sites, online, only_configuration);
}

}  // namespace standin
