#include "histories/history.h"

#include <ostream>

namespace histories {

std::ostream& operator<<(std::ostream& out, const Step& step) {
  constexpr const char* names[] = {
      "commit", "commit_at_begin", "full",    "differential", "incremental", "logs", "to_files",
      "pool",   "lose_log",        "restore", "other",        "copy"};
  return out << names[static_cast<int>(step.what)] << " " << step.choice;
}

std::ostream& operator<<(std::ostream& out, const Wish& wish) {
  return out << wish.choice << (wish.ignore_delta ? " without deltas" : "");
}

std::ostream& operator<<(std::ostream& out, const History& history) {
  out << "begin " << history.begin << "; ";
  for (const Step& step : history.steps) out << step << "; ";
  for (const Wish& wish : history.questions) out << "ask " << wish << "; ";
  return out << "restore to " << history.end;
}

}  // namespace histories
