#pragma once

namespace histories {

/// Has this process and those it starts make their temporary folders in memory where the machine has room there: all
/// programs sync what they store, and a history would wait for the disk longer than for everything else. Does nothing
/// when the environment says where they shall be, or when there is little room. To be called while there is one thread.
void keep_temporary_folders_in_memory();

}  // namespace histories
