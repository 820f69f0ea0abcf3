#include "unit/dorsal3/keyboard.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

void press_ctrl_c() { EXPECT_EQ(::raise(SIGINT), 0); }

Keyboard::Keyboard(const std::string& text) : saved_(::dup(STDIN_FILENO)) {
  int ends[2] = {-1, -1};
  EXPECT_EQ(::pipe(ends), 0);
  EXPECT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  ::close(ends[1]);
  EXPECT_EQ(::dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
  ::close(ends[0]);
}

Keyboard::~Keyboard() {
  (void)::dup2(saved_, STDIN_FILENO);
  ::close(saved_);
}
