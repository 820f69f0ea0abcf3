#include "agentd/modules/module.h"

#include <dlfcn.h>

#include <algorithm>
#include <exception>

#include "platform/file_root.h"
#include "platform/log.h"
#include "platform/product_paths.h"

namespace agentd {

namespace {

bool is_module_name(const std::string& name) {
  constexpr const char* allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
  return !name.empty() && name.find_first_not_of(allowed) == std::string::npos;
}

const char* last_dl_error() {
  const char* const text = ::dlerror();
  return text == nullptr ? "no reason given" : text;
}

}  // namespace

std::unique_ptr<Module> Module::load(const std::string& name) {
  if (!is_module_name(name)) {
    D3_ERROR("Failed to load module '%C', it is not a module's name\n", platform::cut_for_log(name).c_str());
    return nullptr;
  }
  const std::string path = platform::product_paths::module_directory() + "/" + name + ".so";
  void* const library = ::dlopen(platform::File_Root::current().real(path).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    D3_ERROR("Failed to load module '%C', %C\n", name.c_str(), platform::cut_for_log(last_dl_error()).c_str());
    return nullptr;
  }
  std::unique_ptr<Module> module(new Module(name, library));
  module->make_objects();
  return module;
}

Module::~Module() {
  restore_options_ = {};
  restore_source_ = {};
  backup_options_ = {};
  backup_source_ = {};
  json_rpc_handlers_.clear();
  instance_handler_ = {};
  job_creator_ = {};
  if (::dlclose(library_) != 0)
    D3_ERROR("Failed to unload module '%C', %C\n", name_.c_str(), platform::cut_for_log(last_dl_error()).c_str());
}

void Module::make_objects() {
  using namespace module_factories;
  job_creator_ = make<Job_Creator>(hana_job_creator);
  instance_handler_ = make<Instance_Handler>(hana_instance_handler);
  for (const char* const factory :
       {json_rpc_hana_list_handler, json_rpc_hana_instance_control_handler, json_rpc_hana_file_download_handler})
    json_rpc_handlers_.emplace(factory, make<JSON_RPC_Handler>(factory));
  backup_source_ = make<Parser_Creator>(hana_backup_job_source_parser_creator);
  backup_options_ = make<Parser_Creator>(hana_backup_job_options_parser_creator);
  restore_source_ = make<Parser_Creator>(hana_restore_job_source_parser_creator);
  restore_options_ = make<Parser_Creator>(hana_restore_job_options_parser_creator);
}

template <typename Interface>
Module_Object_T<Interface> Module::make(const char* factory) {
  const auto function = reinterpret_cast<module_factories::Make_T<Interface>>(::dlsym(library_, factory));
  if (function == nullptr) {
    D3_WARNING("Module '%C' has no %C, the agent does without it\n", name_.c_str(), factory);
    missing_.emplace_back(factory);
    return {};
  }
  module_factories::Gobble gobble = nullptr;
  Interface* object = nullptr;
  try {
    object = function(&gobble);
  } catch (const std::exception& error) {
    D3_ERROR("Failed to make an object with %C of module '%C', %C\n", factory, name_.c_str(),
             platform::cut_for_log(error.what()).c_str());
    return {};
  }
  if (object == nullptr) D3_ERROR("Failed to make an object with %C of module '%C', %m\n", factory, name_.c_str());
  return {object, gobble};
}

JSON_RPC_Handler* Module::json_rpc_handler(const std::string& factory) const {
  const auto found = json_rpc_handlers_.find(factory);
  return found == json_rpc_handlers_.end() ? nullptr : found->second.get();
}

Job_Parser_Creators Module::parsers(Job_Definition_Type type) const {
  switch (type) {
    case JOB_DEFINITION_BACKUP:
      return {backup_source_.get(), backup_options_.get()};
    case JOB_DEFINITION_RESTORE:
      return {restore_source_.get(), restore_options_.get()};
    default:
      return {};
  }
}

bool Modules::load(const std::vector<std::string>& names) {
  bool all = true;
  for (const std::string& name : names) {
    if (find(name) != nullptr) continue;
    std::unique_ptr<Module> module = Module::load(name);
    if (module == nullptr)
      all = false;
    else
      modules_.push_back(std::move(module));
  }
  return all;
}

const Module* Modules::find(const std::string& name) const {
  const auto found =
      std::find_if(modules_.begin(), modules_.end(), [&](const auto& module) { return module->name() == name; });
  return found == modules_.end() ? nullptr : found->get();
}

std::vector<std::string> Modules::names() const {
  std::vector<std::string> list;
  for (const auto& module : modules_) list.push_back(module->name());
  return list;
}

void Modules::unload() {
  while (!modules_.empty()) modules_.pop_back();
}

}  // namespace agentd
