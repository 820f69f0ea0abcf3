#pragma once

#include <cstddef>

namespace hdbbackint {

/// What one process keeps in memory: a few MiB for itself, and for each stream that moves data at most
/// `slots_per_stream` blocks with their compressed forms, which is under 8 MiB. A stream that still waits for HANA has
/// none.
constexpr std::size_t block_bytes = 512U << 10;
constexpr std::size_t slots_per_stream = 6;
/// A larger pipe saves wake-ups. The system may refuse it to a user with many pipes; the usual size then does.
constexpr int wanted_pipe_bytes = 1 << 20;
/// Streams served at once; later ones are taken as earlier ones end. HANA uses up to 32 for one service.
constexpr std::size_t parallel_objects = 64;
/// Threads that compress, for all streams together.
constexpr unsigned most_compressing_threads = 4;

}  // namespace hdbbackint
