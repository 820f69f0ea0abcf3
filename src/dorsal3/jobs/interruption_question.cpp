#include "dorsal3/jobs/interruption_question.h"

#include <ostream>

namespace dorsal3 {

Interruption_Wish ask_about_interruption(Context& context) {
  const Terminal& terminal = context.terminal;
  if (context.json || terminated() || !terminal.input_is_terminal || !terminal.output_is_terminal)
    return Interruption_Wish::leave;
  forget_interruption();
  std::string answer;
  do {
    context.notes << "Stop the backup? [s]top it, [l]eave it running, [c]ontinue watching: " << std::flush;
    if (!read_line(answer)) {
      context.notes << std::endl;
      return Interruption_Wish::leave;
    }
    if (answer == "s" || answer == "stop") return Interruption_Wish::stop;
    if (answer == "c" || answer == "continue") return Interruption_Wish::go_on;
  } while (answer != "l" && answer != "leave");
  return Interruption_Wish::leave;
}

}  // namespace dorsal3
