// The smallest hdbbackint that backup and recovery need, for the stand-in's own tests: copies each pipe into a folder
// and back. "pool/index" tells which copy is whose. Lines of its script, <root>/backint.script:
//   exit N               ends with N at once          wait MILLISECONDS   before it does anything
//   hold                 waits until the script says something else
//   wrong-size, silent   answers of a backup          restore-exit N      ends with N after a restore
//   notfound TEXT        objects whose name has TEXT are not there, for restore and inquire
//   error TEXT, corrupt TEXT, short TEXT              what becomes of such objects in a restore
//   catalog ID           is what "#NULL .../log_backup_0_0_0_0" gives
//   any-user             objects are found whoever wrote them
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

std::string quoted(const std::string& text) { return "\"" + replaced(text, "\"", "\\\"") + "\""; }

std::vector<std::string> words_of(const std::string& line) {
  std::vector<std::string> words;
  std::string word;
  bool open = false, any = false;
  for (std::size_t at = 0; at <= line.size(); ++at) {
    if (at == line.size() || (line[at] == ' ' && !open)) {
      if (any) words.push_back(word);
      word.clear();
      any = false;
      continue;
    }
    any = true;
    if (line[at] == '"')
      open = !open;
    else if (line[at] == '\\' && at + 1 < line.size() && line[at + 1] == '"')
      word += line[++at];
    else
      word += line[at];
  }
  return words;
}

struct Object {
  std::string id, user, name;
};

class Agent {
 public:
  Agent(std::string root, int count, char** values) : root_(std::move(root)) {
    for (int i = 1; i + 1 < count; ++i) {
      const std::string word = values[i];
      if (word == "-i") in_ = root_ + values[i + 1];
      if (word == "-o") out_ = root_ + values[i + 1];
      if (word == "-f") function_ = values[i + 1];
      if (word == "-u") user_ = values[i + 1];
    }
    std::ifstream script(root_ + "/backint.script");
    for (std::string line; std::getline(script, line);) script_.push_back(line);
    std::ofstream calls(root_ + "/backint.calls", std::ios::app);
    std::ostringstream text;
    for (int i = 1; i < count; ++i) text << values[i] << (i + 1 < count ? ' ' : '\n');
    std::ifstream input(in_);
    for (std::string line; std::getline(input, line);) {
      text << line << '\n';
      lines_.push_back(words_of(line));
    }
    calls << text.str();
  }

  int run() {
    if (const std::string code = told("exit"); !code.empty()) {
      std::cerr << "the pool is full" << std::endl;
      return std::stoi(code);
    }
    if (const std::string pause = told("wait"); !pause.empty())
      std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(pause)));
    if (!told("hold").empty() && !hold()) return 3;
    if (!fs::exists(in_)) return 2;
    fs::create_directories(root_ + "/pool");
    answers_.open(out_);
    answers_ << "#SOFTWAREID \"backint 1.04\" \"scripted 1\"\n";
    for (const auto& words : lines_) {
      if (words.size() < 2) continue;
      if (words[0] == "#PIPE") save(words[1]);
      if (words[0] == "#NULL") serve("", words[1]);
      if (words[0] == "#EBID" && words.size() > 2) serve(words[1], words[2]);
    }
    if (const std::string code = told("restore-exit"); function_ == "restore" && !code.empty()) {
      std::cerr << "the pool is gone" << std::endl;
      return std::stoi(code);
    }
    return 0;
  }

 private:
  /// Waits until the script says something else. False when HANA is gone by then: the pipes of that name may be those
  /// of the next start.
  bool hold() const {
    const auto script = [this] {
      std::vector<std::string> lines;
      std::ifstream file(root_ + "/backint.script");
      for (std::string line; std::getline(file, line);) lines.push_back(line);
      return lines;
    };
    while (script() == script_ && ::getppid() == hana_) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return ::getppid() == hana_;
  }
  /// What stands behind the word in the script; the word itself when nothing does.
  std::string told(const std::string& word) const {
    for (const std::string& line : script_) {
      if (line == word) return word;
      if (line.starts_with(word + " ")) return line.substr(word.size() + 1);
    }
    return {};
  }
  bool told_of(const std::string& word, const std::string& name) const {
    const std::string part = told(word);
    return !part.empty() && name.find(part) != std::string::npos;
  }

  void save(const std::string& name) {
    const std::string id = "id-" + std::to_string(::getpid()) + "-" + std::to_string(++number_);
    std::ifstream pipe(root_ + name, std::ios::binary);
    std::ofstream copy(root_ + "/pool/" + id, std::ios::binary);
    std::string block(1 << 16, '\0');
    std::uint64_t size = 0;
    while (pipe.read(block.data(), static_cast<std::streamsize>(block.size())) || pipe.gcount() > 0) {
      copy.write(block.data(), pipe.gcount());
      size += static_cast<std::uint64_t>(pipe.gcount());
    }
    std::ofstream(root_ + "/pool/index", std::ios::app) << id + "\t" + user_ + "\t" + name + "\n";
    if (!told("wrong-size").empty()) ++size;
    if (told("silent").empty()) answers_ << "#SAVED " << quoted(id) << " " << quoted(name) << " \"" << size << "\"\n";
  }

  std::vector<Object> objects() const {
    std::vector<Object> found;
    std::ifstream index(root_ + "/pool/index");
    for (std::string line; std::getline(index, line);) {
      const std::size_t first = line.find('\t'), second = line.find('\t', first + 1);
      found.push_back({line.substr(0, first), line.substr(first + 1, second - first - 1), line.substr(second + 1)});
    }
    return found;
  }

  std::string find(const std::string& wanted, const std::string& name) const {
    if (told_of("notfound", name)) return {};
    if (wanted.empty() && name.ends_with("/log_backup_0_0_0_0") && !told("catalog").empty()) return told("catalog");
    std::string newest;
    for (const Object& object : objects()) {
      if (object.name != name || (object.user != user_ && told("any-user").empty())) continue;
      if (wanted.empty() || object.id == wanted) newest = object.id;
    }
    return newest;
  }

  void serve(const std::string& wanted, const std::string& name) {
    const std::string id = find(wanted, name);
    if (id.empty()) {
      answers_ << "#NOTFOUND " << (wanted.empty() ? "" : quoted(wanted) + " ") << quoted(name) << "\n";
      return;
    }
    if (function_ == "inquire") {
      answers_ << "#BACKUP " << quoted(id) << " " << quoted(name) << "\n";
      return;
    }
    std::ostringstream content;
    content << std::ifstream(root_ + "/pool/" + id, std::ios::binary).rdbuf();
    std::string text = content.str();
    const bool fails = told_of("error", name);
    if (told_of("corrupt", name)) text[text.size() / 2 + 7] = static_cast<char>(text[text.size() / 2 + 7] ^ 1);
    if (told_of("short", name) || fails) text.resize(text.size() / 2);
    {
      std::ofstream pipe(root_ + name, std::ios::binary);
      pipe << text;
    }
    if (fails)
      answers_ << "#ERROR " << quoted(name) << "\n";
    else
      answers_ << "#RESTORED " << quoted(id) << " " << quoted(name) << "\n";
  }

  const pid_t hana_ = ::getppid();
  std::string root_, in_, out_, function_, user_;
  std::vector<std::string> script_;
  std::vector<std::vector<std::string>> lines_;
  std::ofstream answers_;
  int number_ = 0;
};

}  // namespace

int main(int count, char** values) {
  ::signal(SIGPIPE, SIG_IGN);
  const std::string self = fs::read_symlink("/proc/self/exe");
  return Agent(self.substr(0, self.rfind("/opt/tarvex/")), count, values).run();
}
