#include "unit/agentd/modules/module_fixture.h"

#include <dlfcn.h>

#include <filesystem>

namespace {

constexpr const char* installed = "/opt/tarvex/dorsal3/lib/modules/testing.so";

}  // namespace

Module_Fixture::Module_Fixture() {
  root.make_directory("/opt/tarvex/dorsal3/lib/modules");
  std::filesystem::copy_file(TEST_MODULE_FILE, root.real(installed));
}

json_spirit::Object Module_Fixture::definition(const std::string& name) {
  return {{"id", "bbbbbbbb-0000-4000-8000-000000000001"},
          {"name", name},
          {"type", "backup"},
          {"subtype", "full"},
          {"module", "testing"},
          {"host_uuid", host_uuid},
          {"source", json_spirit::Object{{"id", "0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21"},
                                         {"name", "PRD_HDB00"},
                                         {"entries", json_spirit::Array{"hana/HDB00/TN1"}}}},
          {"options", json_spirit::Object()},
          {"target",
           json_spirit::Object{{"pool_uuid", "7e0f7a52-70c9-44d7-8a5e-7b6a9f0f2f10"}, {"location", "file:///pool"}}}};
}

int Module_Fixture::call_module(const char* function) {
  const std::string path = platform::File_Root::current().real(installed);
  void* const library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (library == nullptr) return -1;
  const auto found = reinterpret_cast<int (*)()>(::dlsym(library, function));
  const int result = found == nullptr ? -1 : found();
  ::dlclose(library);
  return result;
}
