#include "hdbbackint/stream/checksum.h"

#include <xxhash.h>

#include <new>

namespace hdbbackint {

struct Checksum::State {
  XXH3_state_t* state = XXH3_createState();
  State() {
    if (state == nullptr) throw std::bad_alloc();
    XXH3_128bits_reset(state);
  }
  ~State() { XXH3_freeState(state); }
  State(const State&) = delete;
  State& operator=(const State&) = delete;
};

Checksum::Checksum() : state_(std::make_unique<State>()) {}
Checksum::~Checksum() = default;

void Checksum::add(const void* data, std::size_t size) { XXH3_128bits_update(state_->state, data, size); }

std::string Checksum::text() const {
  XXH128_canonical_t canonical;
  XXH128_canonicalFromHash(&canonical, XXH3_128bits_digest(state_->state));
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : canonical.digest) {
    text += digits[byte >> 4];
    text += digits[byte & 15U];
  }
  return text;
}

}  // namespace hdbbackint
