// JSON in and out, as bytes per second over documents of growing size: the time must grow with the size and no faster.

#include <benchmark/benchmark.h>

#include "json/value.h"
#include "json/yajl_parser_t.h"

namespace {

using namespace json_spirit;

/// A list answer as backupd gives it.
std::string list_of_sets(std::size_t rows) {
  Array sets;
  for (std::size_t i = 0; i < rows; ++i) {
    Object set;
    set["uuid"] = "0b6f2b54-5d1f-4b7a-9f4e-2f4bb25a0d0b";
    set["database"] = "TN" + std::to_string(i);
    set["database_backup_id"] = 1'700'000'000'000UL + i;
    set["start_time"] = "2026-11-21 08:00:00";
    set["storages"] = Array{Value(Object{{"pool_uuid", "p"}, {"state", Array{Value("online")}}, {"size", 123456}})};
    sets.push_back(Value(std::move(set)));
  }
  return dump_json(Value(Object{{"total", rows}, {"rows", sets}}));
}

struct Nothing {};

/// The least a handler can do: what remains is the driver.
class Silent_Parser : public YAJL_Parser<Nothing> {
 public:
  bool handle_string_i(const char*, std::size_t) override { return true; }
  bool handle_start_map_i() override { return true; }
  bool handle_map_key_i(const char*, std::size_t) override { return true; }
  bool handle_end_map_i() override { return true; }
  bool handle_start_array_i() override { return true; }
  bool handle_end_array_i() override { return true; }
  Result result() override { return Result(); }
};

void count(benchmark::State& state, const std::string& text) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
  state.SetComplexityN(static_cast<std::int64_t>(text.size()));
}

void drive_events(benchmark::State& state) {
  const std::string text = list_of_sets(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    Silent_Parser parser;
    benchmark::DoNotOptimize(parse_json(text, parser));
  }
  count(state, text);
}

void load_values(benchmark::State& state) {
  const std::string text = list_of_sets(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    Value value;
    benchmark::DoNotOptimize(load_json(text, value));
  }
  count(state, text);
}

void dump_values(benchmark::State& state) {
  const std::string text = list_of_sets(static_cast<std::size_t>(state.range(0)));
  Value value;
  static_cast<void>(load_json(text, value));
  for (auto _ : state) benchmark::DoNotOptimize(dump_json(value));
  count(state, text);
}

BENCHMARK(drive_events)->RangeMultiplier(8)->Range(8, 32768)->Complexity(benchmark::oN);
BENCHMARK(load_values)->RangeMultiplier(8)->Range(8, 32768)->Complexity(benchmark::oN);
BENCHMARK(dump_values)->RangeMultiplier(8)->Range(8, 32768)->Complexity(benchmark::oN);

}  // namespace
