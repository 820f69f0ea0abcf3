#include "backupd/catalog/set_sizes.h"

#include <optional>

namespace backupd {

namespace {

// The ids are milliseconds: two days. The step of the schema that fills the table for sets of former versions holds the
// same number.
constexpr std::int64_t span_ids = 172'800'000;
constexpr char type_full[] = "full";
constexpr char without_deltas[] = " AND type <> 'incremental' AND type <> 'differential'";

void add(Set_Sizes& sum, const std::optional<Sql_Row>& row) {
  if (!row) return;
  sum.source += row->number(0);
  sum.stored += row->number(1);
}

/// One by one, from the index.
void add_single_sets(Sql_Session& session, const Set_Range& range, std::int64_t first, std::int64_t last,
                     Set_Sizes& sum) {
  std::string sql =
      "SELECT coalesce(sum(source_size), 0), coalesce(sum(total_size), 0) FROM sets WHERE lifeline = :a AND "
      "database_backup_id >= :b AND database_backup_id <= :c AND type <> 'full'";
  if (!range.with_deltas) sql += without_deltas;
  add(sum, session.first(sql, {range.lifeline, first, last}, 2));
}

void add_whole_spans(Sql_Session& session, const Set_Range& range, std::int64_t first, std::int64_t end,
                     Set_Sizes& sum) {
  std::string sql =
      "SELECT coalesce(sum(source_size), 0), coalesce(sum(total_size), 0) FROM set_sizes WHERE lifeline = :a AND "
      "span >= :b AND span < :c";
  if (!range.with_deltas) sql += " AND delta = 0";
  add(sum, session.first(sql, {range.lifeline, first, end}, 2));
}

}  // namespace

void count_set(Sql_Session& session, const std::string& lifeline, const std::string& type, std::int64_t backup_id,
               const Set_Sizes& sizes) {
  if (type == type_full) return;
  const std::int64_t delta = type == "incremental" || type == "differential" ? 1 : 0;
  const std::int64_t span = backup_id / span_ids;
  if (session.execute("UPDATE set_sizes SET source_size = source_size + :a, total_size = total_size + :b "
                      "WHERE lifeline = :c AND span = :d AND delta = :e",
                      {sizes.source, sizes.stored, lifeline, span, delta}) == 0)
    session.execute(
        "INSERT INTO set_sizes (lifeline, span, delta, source_size, total_size) VALUES (:a, :b, :c, :d, :e)",
        {lifeline, span, delta, sizes.source, sizes.stored});
}

Set_Sizes sum_sets(Sql_Session& session, const Set_Range& range) {
  if (range.first > range.last) return {};
  Set_Sizes sum;
  add(sum, session.first("SELECT coalesce(sum(source_size), 0), coalesce(sum(total_size), 0) FROM sets "
                         "WHERE lifeline = :a AND database_backup_id = :b AND type = 'full'",
                         {range.lifeline, range.first}, 2));
  const std::int64_t first_whole = range.first / span_ids + 1;
  const std::int64_t end_whole = range.last / span_ids;
  if (first_whole >= end_whole) {
    add_single_sets(session, range, range.first, range.last, sum);
    return sum;
  }
  add_single_sets(session, range, range.first, first_whole * span_ids - 1, sum);
  add_whole_spans(session, range, first_whole, end_whole, sum);
  add_single_sets(session, range, end_whole * span_ids, range.last, sum);
  return sum;
}

}  // namespace backupd
