#pragma once

#include <string>

/// Ctrl-C, as the terminal sends it to this process. The command must have begun to watch for it.
void press_ctrl_c();

/// Standard input for the life of this object: `text`, then its end.
class Keyboard {
 public:
  explicit Keyboard(const std::string& text);
  ~Keyboard();
  Keyboard(const Keyboard&) = delete;
  Keyboard& operator=(const Keyboard&) = delete;

 private:
  int saved_;
};
