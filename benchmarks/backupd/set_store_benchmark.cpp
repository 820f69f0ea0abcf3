// The catalog's questions at 1,000,000 sets: 50 databases with 20,000 sets each, 1 in 100 a full backup, 4 incremental
// ones, 10 catalogs, the rest logs. Prints p50 and p99 of each question beside the mean; DORSAL3_BENCHMARK_SETS takes
// another number.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>

#include "backupd/catalog/catalog_views.h"
#include "backupd/catalog/set_sizes.h"
#include "backupd/catalog/set_store.h"
#include "backupd/store/database.h"
#include "scrt/time_text.h"
#include "scrt/uuid.h"

namespace {

constexpr std::int64_t default_sets = 1'000'000;
constexpr int databases = 50;
constexpr std::int64_t batch = 20'000;
constexpr std::int64_t begin_time = 1'600'000'000;
constexpr std::int64_t seconds_between = 900;
const std::string resource = "44444444-4444-4444-8444-444444444444";

std::string lifeline_of(int database) { return uuid_v5(resource, std::to_string(database)); }
std::string name_of(int database) { return "DB" + std::to_string(database); }
std::string time_of(std::int64_t step) { return posix_time_to_utc_text(begin_time + step * seconds_between); }
std::int64_t backup_id_of(std::int64_t step) { return (begin_time + step * seconds_between) * 1000; }

const char* type_of(std::int64_t step) {
  const std::int64_t place = step % 100;
  if (place == 0) return "full";
  if (place % 25 == 0) return "incremental";
  return place % 10 == 5 ? "catalog" : "log";
}

/// A document of the usual size.
std::string document_of(const std::string& uuid, const char* type, std::int64_t step) {
  return R"({"uuid":")" + uuid + R"(","module":"hana","type":")" + type + R"(","start_time":")" + time_of(step) +
         R"(","storages":[{"pool_uuid":"x","upstream_pool_uuid":null,"state":["online"],"size":1}],"files":[{"filename":")" +
         std::string(600, 'f') + "\"}]}";
}

class Catalog {
 public:
  Catalog() {
    const char* wanted = std::getenv("DORSAL3_BENCHMARK_SETS");
    sets_ = wanted == nullptr ? default_sets : std::max<std::int64_t>(std::atoll(wanted), databases);
    directory_ = std::filesystem::temp_directory_path() / ("dorsal3-sets-" + make_uuid());
    std::filesystem::create_directories(directory_);
    std::string error;
    if (!database.open((directory_ / "sets.db").string(), error)) std::abort();
    for (std::int64_t done = 0; done < sets_; done += batch) fill(done, std::min(done + batch, sets_));
  }
  ~Catalog() { std::filesystem::remove_all(directory_); }
  Catalog(const Catalog&) = delete;
  Catalog& operator=(const Catalog&) = delete;

  [[nodiscard]] std::int64_t steps() const { return sets_ / databases; }

  backupd::Database database;

 private:
  void fill(std::int64_t from, std::int64_t to) {
    const bool ok = database.write([&](backupd::Sql_Session& session) {
      for (std::int64_t i = from; i < to; ++i) {
        const int database_number = static_cast<int>(i % databases);
        const std::int64_t step = i / databases;
        const std::string uuid = uuid_v5(resource, "set" + std::to_string(i));
        session.execute(
            "INSERT INTO sets (id, uuid, module, type, resource_uuid, database_name, database_backup_id, job_id, "
            "job_act_id, "
            "lifeline, start_time, source_size, total_size, document) VALUES (:a, :b, :c, :d, :e, :f, :g, :h, :i, :j, "
            ":k, :l, "
            ":m, :n)",
            {i + 1, uuid, std::string("hana"), std::string(type_of(step)), resource, name_of(database_number),
             backup_id_of(step), std::string(), std::string(), lifeline_of(database_number), time_of(step),
             std::int64_t{1000}, std::int64_t{400}, document_of(uuid, type_of(step), step)});
        backupd::count_set(session, lifeline_of(database_number), type_of(step), backup_id_of(step), {1000, 400});
      }
      return true;
    });
    if (!ok) std::abort();
  }

  std::int64_t sets_ = 0;
  std::filesystem::path directory_;
};

Catalog& catalog() {
  static Catalog made;
  return made;
}

/// Runs `ask` for random databases and steps and reports the quantiles.
template <typename Ask>
void measure(benchmark::State& state, Ask ask) {
  Catalog& made = catalog();
  std::mt19937_64 random(1);
  std::vector<double> milliseconds;
  for (auto _ : state) {
    const int database_number = static_cast<int>(random() % databases);
    const auto step = static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(made.steps()));
    const auto begin = std::chrono::steady_clock::now();
    if (!ask(database_number, step)) state.SkipWithError("no answer");
    milliseconds.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count());
  }
  std::sort(milliseconds.begin(), milliseconds.end());
  if (milliseconds.empty()) return;
  state.counters["p50_ms"] = milliseconds[milliseconds.size() / 2];
  state.counters["p99_ms"] = milliseconds[milliseconds.size() * 99 / 100];
}

void newest_set(benchmark::State& state) {
  backupd::Set_Store store(catalog().database);
  measure(state, [&](int database_number, std::int64_t) {
    backupd::List_Query query;
    query.where("resource_uuid", resource);
    query.where("database_name", name_of(database_number));
    query.where("module", std::string("hana"));
    query.descending = true;
    query.limit = 1;
    backupd::List_Page page;
    return store.select(query, page) && page.rows.size() == 1;
  });
}

void full_before_a_time(benchmark::State& state) {
  backupd::Catalog_Views views(catalog().database);
  measure(state, [&](int database_number, std::int64_t step) {
    json_spirit::Object result;
    return views
        .ask("hana", "rselect",
             {{"type", "fullbackup"},
              {"resource_uuid", resource},
              {"lifeline", lifeline_of(database_number)},
              {"database", name_of(database_number)},
              {"time", time_of(step)}},
             result)
        .ok();
  });
}

void catalog_after_a_time(benchmark::State& state) {
  backupd::Catalog_Views views(catalog().database);
  measure(state, [&](int database_number, std::int64_t step) {
    json_spirit::Object result;
    return views
        .ask("hana", "rselect",
             {{"type", "catalog"},
              {"resource_uuid", resource},
              {"lifeline", lifeline_of(database_number)},
              {"database", name_of(database_number)},
              {"database_backup_id", backup_id_of(step)},
              {"time", time_of(step)}},
             result)
        .ok();
  });
}

/// From a full backup to the catalog at most one cycle of fulls later.
void sizes_of_a_restore(benchmark::State& state) {
  backupd::Catalog_Views views(catalog().database);
  measure(state, [&](int database_number, std::int64_t step) {
    json_spirit::Object result;
    return views
        .ask("hana", "sets_size",
             {{"lifeline", lifeline_of(database_number)},
              {"ignore_delta", false},
              {"start_backup_id", backup_id_of(step - step % 100)},
              {"end_backup_id", backup_id_of(step)}},
             result)
        .ok();
  });
}

/// The worst case: everything a database has.
void sizes_of_a_lifeline(benchmark::State& state) {
  backupd::Catalog_Views views(catalog().database);
  measure(state, [&](int database_number, std::int64_t) {
    json_spirit::Object result;
    return views
        .ask("hana", "sets_size",
             {{"lifeline", lifeline_of(database_number)},
              {"ignore_delta", false},
              {"start_backup_id", 0},
              {"end_backup_id", backup_id_of(catalog().steps())}},
             result)
        .ok();
  });
}

BENCHMARK(newest_set)->Iterations(5000);
BENCHMARK(full_before_a_time)->Iterations(5000);
BENCHMARK(catalog_after_a_time)->Iterations(5000);
BENCHMARK(sizes_of_a_restore)->Iterations(5000);
BENCHMARK(sizes_of_a_lifeline)->Iterations(200);

}  // namespace
