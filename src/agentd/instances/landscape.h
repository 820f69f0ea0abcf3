#pragma once

#include "agent/api/instance.h"
#include "json/value.h"

namespace agentd {

/// What a host knows of the system that an instance belongs to, beyond what its module tells, from the system's
/// "/usr/sap/<SID>/SYS/global/hdb/custom/config/nameserver.ini"; works while the instance is down. Members of
/// "extended_attrs": "landscape_id", by which the server finds that instances on several hosts are one system, and, in
/// a system that spans several hosts, "active_master": whether this host's name server is the active master. Empty when
/// the options name no system or the file cannot be read: the instance then stands for itself.
[[nodiscard]] json_spirit::Object landscape_attributes(const Instance& instance);

/// The same from the file's text; `host` is what the instance calls its host.
[[nodiscard]] json_spirit::Object parse_landscape(const std::string& text, const std::string& host);

}  // namespace agentd
