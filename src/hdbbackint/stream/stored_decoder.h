#pragma once

#include <memory>

#include "hdbbackint/stream/byte_input.h"
#include "records/compression_method.h"

namespace hdbbackint {

/// Undoes what Block_Encoder did: reads a stored object from `stored` (not owned) and gives the bytes that HANA wrote.
/// An object that is cut, damaged or followed by more is a failure, never a shorter stream. Null for a method that is
/// unknown.
[[nodiscard]] std::unique_ptr<Byte_Input> make_stored_decoder(Compression_Method method, Byte_Input& stored);

}  // namespace hdbbackint
