#pragma once

#include <string>
#include <utility>

namespace backupd {

/// How a request ended. The message of a refusal says what was refused, why, and what to do next.
struct Outcome {
  enum Kind {
    done,
    already_done,  ///< the same change was made before; nothing was changed
    bad_request,   ///< cannot be understood
    forbidden,     ///< understood, but not for this key
    not_found,
    conflict,  ///< contradicts what is stored
    too_large,
    invalid,      ///< understood, but breaks a rule
    internal,     ///< this server failed; the cause is in its log
    unavailable,  ///< an agent or the store cannot be reached now
    timed_out,    ///< an agent did not answer in time
    pool_full
  };
  Kind kind = done;
  std::string message;

  [[nodiscard]] bool ok() const { return kind == done || kind == already_done; }
  [[nodiscard]] static Outcome refuse(Kind kind, std::string message) { return {kind, std::move(message)}; }
};

/// The word of an error answer: "not_found", "conflict", ...
[[nodiscard]] const char* outcome_word(Outcome::Kind kind);
[[nodiscard]] unsigned outcome_http_status(Outcome::Kind kind);

}  // namespace backupd
