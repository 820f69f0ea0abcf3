#include "histories/history_runner.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "system/processes.h"

namespace histories {

namespace {

using json_spirit::Object;

constexpr std::time_t between_steps = 8;
constexpr std::time_t half_between = between_steps / 2;
constexpr unsigned keys = 4;
constexpr unsigned deletes_every = 5;
constexpr std::chrono::seconds record_limit{180};
constexpr std::time_t between_begins = 1700;  ///< all minutes of an hour, in the end
constexpr unsigned begins = 5;
constexpr const char* kind_names[] = {"full", "differential", "incremental"};

const char* name_of(History_Model::Kind kind) { return kind_names[static_cast<int>(kind)]; }

void expect(bool condition, const std::string& what) {
  if (!condition) throw std::runtime_error(what);
}

std::string label_of(const Content& content) {
  std::string text;
  for (const auto& [key, value] : content) text.append(text.empty() ? "" : " ").append(key + "=" + value);
  return "{" + text + "}";
}

std::string label_of(const Target& target) {
  return target.set.empty() ? utc_text(target.time) + " (" + std::to_string(target.time) + ")" : "set " + target.set;
}

std::string codes_of(const Object& plan) {
  json_spirit::Array refusals;
  (void)json_spirit::object_get(plan, "refusals", refusals);
  std::vector<std::string> codes;
  for (const json_spirit::Value& refusal : refusals) codes.push_back(text_of(refusal.get_obj(), "code"));
  std::sort(codes.begin(), codes.end());
  codes.erase(std::unique(codes.begin(), codes.end()), codes.end());
  std::string text;
  for (const std::string& code : codes) text += (text.empty() ? "" : " ") + code;
  return text;
}

}  // namespace

History_Runner::~History_Runner() {
  for (const Life& life : lives_) try {
      system_.retire(life.database);
    } catch (const std::exception&) {
      // A restore that failed has left it stopped.
    }
}

void History_Runner::begin_life() {
  Life life;
  life.database = lives_.empty() ? system_.add_database() : system_.add_database_beside(lives_.front().database);
  life.model = History_Model(system_.is_old(life.database));
  databases_.push_back(life.database);
  lives_.push_back(std::move(life));
}

void History_Runner::live(const History& history) {
  system_.move_to(system_.begin() + static_cast<std::time_t>(history.begin % begins) * between_begins);
  for (const Step& step : history.steps) happen(step);
  for (current_ = 0; current_ < lives_.size(); ++current_) {
    for (const Wish& wish : history.questions)
      if (Target target; choose(wish, target)) (void)ask(target, life().database);
    let_time_pass();
    restore(history.end);
  }
}

void History_Runner::happen(const Step& step) {
  using What = Step::What;
  if (step.what == What::commit_at_begin && begin_of_full_ != 0) return commit_at_begin(step.choice);
  let_time_pass();
  begin_of_full_ = 0;
  switch (step.what) {
    case What::commit:
    case What::commit_at_begin:
      return commit(step.choice);
    case What::full:
      return back_up(History_Model::Kind::full);
    case What::differential:
      return back_up(History_Model::Kind::differential);
    case What::incremental:
      return back_up(History_Model::Kind::incremental);
    case What::logs:
      return save_logs();
    case What::to_files:
      return back_up_to_files();
    case What::pool:
      life().pool = life().pool == "first" ? "second" : "first";
      return;
    case What::lose_log:
      return lose_log(step.choice);
    case What::restore:
      return restore({step.choice, false});
    case What::other:
      if (lives_.size() == 1) begin_life();
      current_ = 1 - current_;
      return;
    case What::copy:
      return copy({step.choice, false});
  }
}

/// Nothing happens at the moment between.
void History_Runner::let_time_pass() {
  const std::time_t now = system_.now();
  for (Life& life : lives_) life.model.quiet(now + half_between);
  system_.move_to(now + between_steps);
}

void History_Runner::commit(unsigned choice) {
  const std::string key = "k" + std::to_string(choice % keys);
  std::string value;
  const bool deletes = ++values_ % deletes_every == 0;
  if (!deletes) value = std::to_string(values_);
  (void)system_.sql(
      deletes ? "DELETE FROM KV WHERE K='" + key + "'" : "UPSERT KV VALUES ('" + key + "','" + value + "')",
      life().database);
  life().model.committed(system_.now(), key, value);
}

/// HANA's time goes on to the second after that in which it began the backup.
void History_Runner::commit_at_begin(unsigned choice) {
  system_.move_to(begin_of_full_);
  begin_of_full_ = 0;
  commit(choice);
}

/// HANA's log begins at the newest full backup that its log writer finds: it has to look between the first two.
void History_Runner::let_log_begin() {
  constexpr long looks_wanted = 2;  // the first may have begun before
  constexpr int most_tries = 3000;
  for (int i = 0; i < most_tries && life().looks_at_full >= 0; ++i) {
    const long looks = system_.log_looks(life().database);
    const bool restarted = looks < life().looks_at_full;  // which comes with a log of its own
    if (restarted || looks >= life().looks_at_full + looks_wanted) life().looks_at_full = -1;
    if (life().looks_at_full >= 0) system_tests::pause_20_ms();
  }
}

void History_Runner::back_up(History_Model::Kind kind) {
  let_log_begin();
  const History_Model::Kind becomes = life().model.kind_of_next(kind, life().pool);
  const std::time_t from = system_.now();
  const std::string state = system_.back_up(life().database, name_of(kind), life().pool);
  if (life().model.refuses(becomes)) return expect(state == "error", "a delta ends " + state);
  expect(state == "completed", std::string("the backup ends ") + state);
  bool found = false;
  for (const Object& set : new_sets(life(), 2)) {
    check_begin(set, from);
    const std::string type = text_of(set, "type");
    if (type == "catalog") continue;
    expect(type == name_of(becomes), "a backup became " + type + " instead of " + name_of(becomes));
    const std::time_t first = utc_time(text_of(set, "first_time"));
    life().model.backed_up(becomes, life().pool, text_of(set, "uuid"), first, utc_time(text_of(set, "last_time")));
    if (becomes == History_Model::Kind::full) begin_of_full_ = first;
    found = true;
  }
  expect(found, "the backup has no set");
  if (life().known_sets <= 2) life().looks_at_full = system_.log_looks(life().database);
}

/// Those of all databases.
void History_Runner::save_logs() {
  const std::time_t from = system_.now() + Hana_System::log_timeout;
  system_.move_to(from);
  for (Life& life : lives_)
    if (life.model.keeps_logs()) save_logs_of(life, from);
}

void History_Runner::save_logs_of(Life& life, std::time_t from) {
  for (const Object& set : new_sets(life, 2 * system_.volumes_of(life.database))) {
    check_begin(set, from);
    if (text_of(set, "type") != "log") continue;
    life.model.logs_saved(utc_time(text_of(set, "first_time")));
    life.log_ids.push_back(text_of(set, "database_backup_id"));
  }
}

/// Before the first backup through Backint the product cannot record the catalog backups that HANA makes from here on.
void History_Runner::back_up_to_files() {
  if (!life().model.keeps_logs()) return;
  let_log_begin();
  system_.back_up_to_files(life().database);
  life().model.backed_up_to_files(utc_time(text_of(new_sets(life(), 1).front(), "first_time")));
}

bool History_Runner::choose(const Wish& wish, Target& target) const {
  const std::vector<Target> targets = life().model.targets();
  if (targets.empty()) return false;
  target = targets[wish.choice % targets.size()];
  target.ignore_delta = wish.ignore_delta;
  return true;
}

Expectation History_Runner::expected_of(const Target& target, const Database& into) const {
  return into == life().database ? life().model.expect(target) : life().model.expect_copy(target);
}

bool History_Runner::ask(const Target& target, const Database& into) {
  const std::string time = target.set.empty() ? utc_text(target.time) : "";
  const Object plan = system_.plan(life().database, into, time, target.set, target.ignore_delta);
  const std::string codes = plan.empty() ? "unknown" : codes_of(plan);
  const Expectation expected = expected_of(target, into);
  expect(codes == expected.refusal, label_of(life().database) + " to " + label_of(target) + ": refused '" + codes +
                                        "' instead of '" + expected.refusal + "': " + json_spirit::dump_json(plan));
  if (!codes.empty()) ask_nearest(target, into, plan);
  return codes.empty();
}

/// What a refused plan names instead must be had when it is asked for, with the same wish otherwise.
void History_Runner::ask_nearest(const Target& target, const Database& into, const Object& plan) {
  for (const char* which : {"before", "after"}) {
    Object nearest;
    if (!json_spirit::object_get(plan, which, nearest)) continue;
    const std::string time = text_of(nearest, "time");
    Target instead{utc_time(time), text_of(nearest, "set"), target.ignore_delta};
    const Object other =
        system_.plan(life().database, into, instead.set.empty() ? time : "", instead.set, instead.ignore_delta);
    const std::string refused = codes_of(other);
    expect(refused.empty() && expected_of(instead, into).refusal.empty(),
           label_of(life().database) + " to " + label_of(target) + ": the nearest one " + which + ", " +
               label_of(instead) + ", is refused '" + refused + "', expected '" + expected_of(instead, into).refusal +
               "': " + json_spirit::dump_json(plan) + " and " + json_spirit::dump_json(other));
  }
}

void History_Runner::lose_log(unsigned choice) {
  Life& in = life();
  if (in.log_ids.empty()) return;
  const std::size_t number = choice % in.log_ids.size();
  // It may be gone already.
  if (!in.lost.insert(number).second) return;
  system_.lose(in.database, in.log_ids[number]);
  in.model.log_lost(number);
}

void History_Runner::restore(const Wish& wish) {
  Target target;
  if (!choose(wish, target) || !ask(target, life().database)) return;
  if (life().model.is_beyond_old_hana(target)) return;
  (void)carry_out(target, life().database);
  life().model.restored(system_.now(), target);
}

void History_Runner::copy(const Wish& wish) {
  Target target;
  if (!choose(wish, target) || !life().model.expect(target).refusal.empty()) return;
  Life copied;
  copied.model = History_Model(system_.is_old(life().database));
  copied.database = system_.add_target_for(life().database);
  copied.pool = life().pool;
  databases_.push_back(copied.database);
  if (!ask(target, copied.database)) return system_.retire(copied.database);
  const Content content = carry_out(target, copied.database);
  system_.retire(life().database);
  copied.model.begun_as_copy(system_.now(), content);
  life() = std::move(copied);
}

Content History_Runner::carry_out(const Target& target, const Database& into) {
  const std::string time = target.set.empty() ? utc_text(target.time) : "";
  const std::string state = system_.restore(life().database, into, time, target.set, target.ignore_delta);
  const std::string what = label_of(life().database) + " to " + label_of(target) + " into " + label_of(into) + ": ";
  expect(state == "completed", what + "the restore ends " + state);
  Content there = rows(into);
  const Content expected = expected_of(target, into).content;
  expect(there == expected, what + "rows " + label_of(there) + " instead of " + label_of(expected));
  return there;
}

std::vector<Object> History_Runner::new_sets(Life& life, std::size_t count) {
  std::vector<Object> sets;
  const bool there = eventually(
      system_.watch(),
      [&] {
        sets = system_.sets(life.database, life.known_sets);
        return sets.size() >= count;
      },
      record_limit);
  system_.wait_until_recorded(life.database);
  expect(there && sets.size() == count, std::to_string(sets.size()) + " new sets instead of " + std::to_string(count) +
                                            " of " + label_of(life.database));
  life.known_sets += count;
  return sets;
}

void History_Runner::check_begin(const Object& set, std::time_t from) const {
  const std::time_t first = utc_time(text_of(set, "first_time"));
  expect(first == from + 1, text_of(set, "type") + " set begins at " + utc_text(first) + ", HANA at " + utc_text(from));
}

Content History_Runner::rows(const Database& database) const {
  std::istringstream lines(system_.sql("select K, V from KV", database));
  Content rows;
  for (std::string line; std::getline(lines, line);)
    if (const std::size_t comma = line.find(','); comma != std::string::npos)
      rows[line.substr(0, comma)] = line.substr(comma + 1);
  return rows;
}

}  // namespace histories
