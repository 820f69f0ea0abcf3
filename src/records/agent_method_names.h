#pragma once

/// The agent's own method by which another host of a system has removed what its restore has staged on this one
/// (docs/formats/restore-catalog.md).
inline constexpr const char* staged_remove_method = "staged.remove";
