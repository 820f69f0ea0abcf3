#pragma once

namespace hdbbackint {

/// What one call of the program does.
enum class Function { none, backup, restore, inquire, remove };

}  // namespace hdbbackint
