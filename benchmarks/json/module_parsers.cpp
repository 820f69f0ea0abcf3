// The module's parsers of job definitions. Budget: 100 MB/s or more, time that grows with the size and no faster, and a
// document that is too deep or too large refused without a handler seeing more than the limits.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hana/job/backup_job_options_parser.h"
#include "hana/job/restore_job_options_parser.h"
#include "hana/job/restore_job_source_parser.h"
#include "job/default_backup_job_source_parser.h"

namespace {

using Clock = std::chrono::steady_clock;
using Parser_Maker = std::function<std::unique_ptr<YAJL_Handler>()>;
using Document_Maker = std::function<std::string(std::size_t entries)>;

constexpr double budget_bytes_per_second = 100e6;
/// What one byte of the largest document may cost beside one of the middle one, which has a 64th of its entries and
/// fits into the processor's caches.
constexpr double budget_growth = 2;
constexpr std::size_t middle_entries = 1024;
constexpr std::size_t many_entries = 65536;
constexpr int rounds = 15;

struct Subject {
  const char* name;
  Parser_Maker parser;
  Document_Maker document;
};

std::string joined(std::size_t count, const std::function<std::string(std::size_t)>& entry) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += (i == 0 ? "" : ",") + entry(i);
  return text;
}

std::string backup_source(std::size_t entries) {
  return R"({"id":"0b6f2b54-5d1f-4b7a-9f4e-2f4bb25a0d0b","name":"HDB_HDB00","entries":[)" +
         joined(entries, [](std::size_t i) { return "\"hana/HDB00/TENANT" + std::to_string(i) + "\""; }) + "]}";
}

std::string restore_source(std::size_t entries) {
  return R"({"id":"0b6f2b54-5d1f-4b7a-9f4e-2f4bb25a0d0b","name":"HDB_HDB00","entries":[)" +
         joined(
             entries,
             [](std::size_t i) {
               const std::string database = "TENANT" + std::to_string(i);
               return R"({"catalog_uuid":"7c0f6a52-3df0-4a52-9f57-21a4a2f8c0de","original":{"sid":"HDB","database":")" +
                      database + R"("},"restore_as":{"database":")" + database +
                      R"(","timepoint":"2026-11-21 08:00:00"}})";
             }) +
         "]}";
}

/// Options have no lists; unknown keys are what makes them long. They come first: behind a known one they would mean
/// it.
std::string options(const std::string& value, const std::string& known, std::size_t entries) {
  return "{" + joined(entries, [&](std::size_t i) { return "\"unknown_" + std::to_string(i) + "\":" + value; }) + "," +
         known + "}";
}

template <typename Parser>
std::unique_ptr<YAJL_Handler> make() {
  return std::make_unique<Parser>();
}

/// Seconds a byte, the best of several: what the machine does besides only ever adds. Negative: refused.
double seconds_per_byte(const Subject& subject, const std::string& text) {
  double best = 1;
  for (int round = 0; round < rounds; ++round) {
    const std::unique_ptr<YAJL_Handler> parser = subject.parser();
    const Clock::time_point begin = Clock::now();
    const JSON_Parse_Result outcome = parse_json(text, *parser);
    const std::chrono::duration<double> taken = Clock::now() - begin;
    if (!outcome.ok) {
      std::printf("%-24s refused a good document: %s\n", subject.name, outcome.message.c_str());
      return -1;
    }
    best = std::min(best, taken.count() / static_cast<double>(text.size()));
  }
  return best;
}

bool refuses(const Subject& subject, const char* what, const std::string& text) {
  const std::unique_ptr<YAJL_Handler> parser = subject.parser();
  const bool refused = !parse_json(text, *parser).ok;
  if (!refused) std::printf("%-24s takes a document that is %s\n", subject.name, what);
  return refused;
}

bool judge(const Subject& subject) {
  const double middle = seconds_per_byte(subject, subject.document(middle_entries));
  const double large = seconds_per_byte(subject, subject.document(many_entries));
  if (middle < 0 || large < 0) return false;
  const double speed = 1 / std::max(middle, large);
  const double growth = large / middle;
  const bool kept = speed >= budget_bytes_per_second && growth <= budget_growth;
  std::printf(
      "%-24s %4.0f MB/s (budget 100 or more), a byte of %zu entries costs %.2f of one of %zu (budget %.1f): %s\n",
      subject.name, speed / 1e6, many_entries, growth, middle_entries, budget_growth, kept ? "kept" : "MISSED");
  constexpr std::size_t too_deep = 200;
  constexpr std::size_t too_large = std::size_t{17} << 20;
  const std::string deep = R"({"x":)" + std::string(too_deep, '[') + std::string(too_deep, ']') + "}";
  const std::string large_text = R"({"x":")" + std::string(too_large, 'a') + "\"}";
  const bool bounded = refuses(subject, "too deep", deep) && refuses(subject, "too large", large_text);
  return kept && bounded;
}

}  // namespace

int main() {
  const Subject subjects[] = {
      {"source of a backup", make<Default_Backup_Job_Source_Parser>, backup_source},
      {"source of a restore", make<sap_hana::Restore_Job_Source_Parser>, restore_source},
      {"options of a backup", make<sap_hana::Backup_Job_Options_Parser>,
       [](std::size_t entries) {
         return options("\"a text of some length\"", R"("compression":"zstd","compression_level":1)", entries);
       }},
      {"options of a restore", make<sap_hana::Restore_Job_Options_Parser>,
       [](std::size_t entries) { return options("false", R"("ignore_delta":true)", entries); }},
  };
  bool all = true;
  for (const Subject& subject : subjects) all = judge(subject) && all;
  return all ? 0 : 1;
}
