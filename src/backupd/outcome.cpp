#include "backupd/outcome.h"

namespace backupd {

namespace {

struct Row {
  Outcome::Kind kind;
  unsigned status;
  const char* word;
};

constexpr Row rows[] = {
    {Outcome::done, 200, "done"},
    {Outcome::already_done, 200, "done"},
    {Outcome::bad_request, 400, "bad_request"},
    {Outcome::forbidden, 403, "forbidden"},
    {Outcome::not_found, 404, "not_found"},
    {Outcome::conflict, 409, "conflict"},
    {Outcome::too_large, 413, "too_large"},
    {Outcome::invalid, 422, "invalid"},
    {Outcome::internal, 500, "internal"},
    {Outcome::unavailable, 503, "unavailable"},
    {Outcome::timed_out, 504, "timed_out"},
    {Outcome::pool_full, 507, "pool_full"},
};

const Row& row_of(Outcome::Kind kind) {
  constexpr std::size_t internal_row = 8;
  for (const Row& row : rows)
    if (row.kind == kind) return row;
  return rows[internal_row];
}

}  // namespace

const char* outcome_word(Outcome::Kind kind) { return row_of(kind).word; }

unsigned outcome_http_status(Outcome::Kind kind) { return row_of(kind).status; }

}  // namespace backupd
