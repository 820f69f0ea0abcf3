#pragma once

namespace sap_hana {

/// Gives a file or directory to the group `group`, or to SAP's group when it is null, so that HANA's processes can
/// reach it. False, with a message, when there is no such group or the file cannot be changed.
[[nodiscard]] bool change_file_group_to_sap(const char* path, const char* group);

}  // namespace sap_hana
