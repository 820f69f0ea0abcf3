#include <iostream>

#include "backupd/commands.h"
#include "platform/file_root.h"

int main(int argc, char** argv) {
  platform::File_Root::set_current(platform::File_Root::of_running_program());
  return backupd::run_command_line(argc, argv, std::cout, std::cerr);
}
