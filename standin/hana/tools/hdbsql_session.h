#pragma once

#include <cstdio>
#include <optional>

#include "base/layout.h"
#include "base/wire.h"
#include "tools/hdbsql_options.h"

namespace standin {

/// One run of hdbsql: its connection and what it answers to statements and commands.
class Hdbsql_Session {
 public:
  Hdbsql_Session(const Layout& layout, const Hdbsql_Options& options, std::FILE* out)
      : layout_(layout), options_(options), out_(out), connect_(options.connect) {}
  /// Runs a statement or a backslash command. False when it failed; then `last_code` tells.
  bool run(const std::string& statement);
  bool connect(const Connect_Options& connect, bool told);
  [[nodiscard]] bool connected() const { return connection_.valid(); }
  [[nodiscard]] int last_code() const { return last_code_; }
  [[nodiscard]] bool wants_quit() const { return quit_; }
  [[nodiscard]] bool exit_zero() const { return exit_zero_; }

 private:
  bool command(const std::string& line);
  bool status();
  bool fail(int code, const std::string& text, const std::string& state);
  std::string port_of(const Connect_Options& connect) const;
  /// Of another host of the system by its name; any other name means this one.
  std::string socket_of(const std::string& host) const;
  bool obey(const std::string& directives);

  Layout layout_;
  Hdbsql_Options options_;
  std::FILE* out_;
  Connect_Options connect_;
  Descriptor connection_;
  Message greeting_;
  int last_code_ = 0;
  bool quit_ = false;
  bool exit_zero_ = false;
  bool errors_to_stdout_ = false;
  bool tried_ = false;
};

}  // namespace standin
