// The smallest hdbbackint that a backup needs, for the stand-in's own tests: copies each pipe into a folder. Reads its
// script from <root>/backint.script: "exit N", "wrong-size", "silent", "wait MILLISECONDS" (before it reads).
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

namespace fs = std::filesystem;

namespace {

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

}  // namespace

int main(int count, char** values) {
  const std::string self = fs::read_symlink("/proc/self/exe");
  const std::string root = self.substr(0, self.rfind("/opt/tarvex/"));
  std::string in, out;
  for (int i = 1; i + 1 < count; ++i) {
    if (std::string(values[i]) == "-i") in = root + values[i + 1];
    if (std::string(values[i]) == "-o") out = root + values[i + 1];
  }
  std::ofstream calls(root + "/backint.calls", std::ios::app);
  for (int i = 1; i < count; ++i) calls << values[i] << (i + 1 < count ? ' ' : '\n');
  std::string script;
  std::getline(std::ifstream(root + "/backint.script"), script);
  if (script.starts_with("exit ")) {
    std::cerr << "the pool is full" << std::endl;
    return std::stoi(script.substr(5));
  }
  if (script.starts_with("wait ")) std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(script.substr(5))));
  std::ifstream input(in);
  if (!input) return 2;
  std::ofstream answers(out);
  answers << "#SOFTWAREID \"backint 1.04\" \"scripted 1\"\n";
  fs::create_directories(root + "/pool");
  int number = 0;
  for (std::string line; std::getline(input, line);) {
    calls << line << '\n';
    if (!line.starts_with("#PIPE \"")) continue;
    const std::string quoted = line.substr(7, line.rfind('"') - 7);
    const std::string name = replaced(quoted, "\\\"", "\"");
    const std::string id = "id-" + std::to_string(::getpid()) + "-" + std::to_string(++number);
    std::ifstream pipe(root + name, std::ios::binary);
    std::ofstream copy(root + "/pool/" + id, std::ios::binary);
    std::string block(1 << 16, '\0');
    std::uint64_t size = 0;
    while (pipe.read(block.data(), static_cast<std::streamsize>(block.size())) || pipe.gcount() > 0) {
      copy.write(block.data(), pipe.gcount());
      size += static_cast<std::uint64_t>(pipe.gcount());
    }
    if (script == "wrong-size") ++size;
    if (script != "silent") answers << "#SAVED \"" << id << "\" \"" << quoted << "\" \"" << size << "\"\n";
  }
  return 0;
}
