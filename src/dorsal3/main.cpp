#include <cstdlib>
#include <iostream>

#include "dorsal3/command.h"
#include "platform/file_root.h"

int main(int argc, char** argv) {
  platform::File_Root::set_current(platform::File_Root::of_running_program());
  dorsal3::watch_interruptions();
  const char* const home = std::getenv("HOME");
  return dorsal3::run_command({argv + 1, argv + argc}, dorsal3::Terminal::detect(), home == nullptr ? "" : home,
                              std::cout, std::cerr);
}
