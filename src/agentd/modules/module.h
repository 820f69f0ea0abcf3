#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "agent/api/module_factories.h"
#include "job/job_definition_reader.h"

namespace agentd {

/// An object that a module made, with the module's own function to dispose of it, which is called exactly once.
template <typename Interface>
class Module_Object_T {
 public:
  Module_Object_T() = default;
  Module_Object_T(Interface* object, module_factories::Gobble gobble) : object_(object), gobble_(gobble) {}
  ~Module_Object_T() { dispose(); }
  Module_Object_T(Module_Object_T&& other) noexcept
      : object_(std::exchange(other.object_, nullptr)), gobble_(std::exchange(other.gobble_, nullptr)) {}
  Module_Object_T& operator=(Module_Object_T&& other) noexcept {
    if (this == &other) return *this;
    dispose();
    object_ = std::exchange(other.object_, nullptr);
    gobble_ = std::exchange(other.gobble_, nullptr);
    return *this;
  }

  [[nodiscard]] Interface* get() const { return object_; }

 private:
  void dispose() {
    if (object_ != nullptr && gobble_ != nullptr) gobble_(object_);
    object_ = nullptr;
  }

  Interface* object_ = nullptr;
  module_factories::Gobble gobble_ = nullptr;
};

/// One loaded module: the library and the objects made through its factories. What the module lacks is null. The
/// objects are disposed of before the library goes; who uses them must be done before that. Any thread may read it.
class Module {
 public:
  /// Loads "<module directory>/<name>.so" and makes its objects. Null, with one error line, when the name is not
  /// [A-Za-z0-9_-]+ or the library cannot be loaded. A factory that is missing, or makes nothing, is logged and done
  /// without.
  [[nodiscard]] static std::unique_ptr<Module> load(const std::string& name);
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] Job_Creator* job_creator() const { return job_creator_.get(); }
  [[nodiscard]] Instance_Handler* instance_handler() const { return instance_handler_.get(); }
  /// The handler whose factory has that exported name.
  [[nodiscard]] JSON_RPC_Handler* json_rpc_handler(const std::string& factory) const;
  [[nodiscard]] Job_Parser_Creators parsers(Job_Definition_Type type) const;
  /// Exported names that were not found.
  [[nodiscard]] const std::vector<std::string>& missing() const { return missing_; }

 private:
  Module(std::string name, void* library) : name_(std::move(name)), library_(library) {}
  void make_objects();
  template <typename Interface>
  Module_Object_T<Interface> make(const char* factory);

  using Parser_Creator = Object_Creator_T<YAJL_Handler>;

  std::string name_;
  void* library_;
  std::vector<std::string> missing_;
  Module_Object_T<Job_Creator> job_creator_;
  Module_Object_T<Instance_Handler> instance_handler_;
  std::map<std::string, Module_Object_T<JSON_RPC_Handler>> json_rpc_handlers_;
  Module_Object_T<Parser_Creator> backup_source_;
  Module_Object_T<Parser_Creator> backup_options_;
  Module_Object_T<Parser_Creator> restore_source_;
  Module_Object_T<Parser_Creator> restore_options_;
};

/// The modules of the configuration. Filled at start by one thread, read by many.
class Modules {
 public:
  /// Loads every module named; true when all could be loaded. One that could not be is left out.
  bool load(const std::vector<std::string>& names);
  /// Null when there is no such module.
  [[nodiscard]] const Module* find(const std::string& name) const;
  [[nodiscard]] const std::vector<std::unique_ptr<Module>>& all() const { return modules_; }
  [[nodiscard]] std::vector<std::string> names() const;
  /// Disposes of everything, last loaded first.
  void unload();

 private:
  std::vector<std::unique_ptr<Module>> modules_;
};

}  // namespace agentd
