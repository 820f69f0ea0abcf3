// Drives the built module through its exported names alone.

#include <ace/Thread_Manager.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "counted_memory.h"
#include "job/default_backup_job_source.h"
#include "json/yajl_generator.h"
#include "json/yajl_parser_t.h"
#include "loaded_module.h"
#include "platform/clock.h"
#include "platform/process_runner.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using module_factories::Gobble;
using Parser_Creator = Object_Creator_T<YAJL_Handler>;

constexpr const char* parser_factories[] = {module_factories::hana_backup_job_options_parser_creator,
                                            module_factories::hana_backup_job_source_parser_creator,
                                            module_factories::hana_restore_job_source_parser_creator,
                                            module_factories::hana_restore_job_options_parser_creator};

const std::set<std::string> exported_names = {module_factories::hana_job_creator,
                                              module_factories::hana_instance_handler,
                                              module_factories::json_rpc_hana_list_handler,
                                              module_factories::json_rpc_hana_instance_control_handler,
                                              module_factories::json_rpc_hana_file_download_handler,
                                              module_factories::hana_backup_job_options_parser_creator,
                                              module_factories::hana_backup_job_source_parser_creator,
                                              module_factories::hana_restore_job_source_parser_creator,
                                              module_factories::hana_restore_job_options_parser_creator};

/// Every factory seen as one that makes something.
using Make_Anything = void* (*)(Gobble*);

class Text_Sink : public platform::Output_Sink {
 public:
  void on_output(platform::Output_Stream, const char* data, std::size_t size) override { text.append(data, size); }
  std::string text;
};

/// Names that the module defines for others, as the binary tools list them.
std::set<std::string> listed_symbols() {
  platform::Process_Spec spec;
  spec.program = DORSAL3_NM;
  spec.arguments = {"--dynamic", "--defined-only", DORSAL3_MODULE_FILE};
  Text_Sink sink;
  EXPECT_TRUE(platform::Process_Runner::current().run(spec, sink).success()) << sink.text;
  std::set<std::string> names;
  std::istringstream lines(sink.text);
  std::string address;
  std::string kind;
  std::string name;
  while (lines >> address >> kind >> name) {
    EXPECT_EQ(kind, "T") << name;
    names.insert(name);
  }
  return names;
}

bool is_mapped() {
  std::ifstream maps("/proc/self/maps");
  std::string line;
  while (std::getline(maps, line))
    if (line.ends_with("/hana.so")) return true;
  return false;
}

long resident_kib() {
  std::ifstream status("/proc/self/statm");
  long total = 0;
  long resident = 0;
  status >> total >> resident;
  return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

std::size_t open_descriptors() {
  const std::filesystem::directory_iterator listing("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(listing), end(listing)));
}

class Module_Test : public testing::Test {
 protected:
  support::Log_Capture log_;
};

TEST_F(Module_Test, Exports_Its_Factories_And_Nothing_Else) { EXPECT_EQ(listed_symbols(), exported_names); }

TEST_F(Module_Test, Makes_Without_A_Place_For_The_Disposal_Function) {
  const Loaded_Module module;
  for (const std::string& name : exported_names) {
    const auto make = module.find<Make_Anything>(name.c_str());
    ASSERT_NE(make, nullptr) << name;
    void* const unnamed = make(nullptr);
    EXPECT_NE(unnamed, nullptr) << name;
    Gobble gobble = nullptr;
    void* const other = make(&gobble);
    EXPECT_NE(other, unnamed) << name;
    ASSERT_NE(gobble, nullptr) << name;
    gobble(unnamed);
    gobble(other);
  }
}

TEST_F(Module_Test, Disposal_Ignores_Null) {
  const Loaded_Module module;
  for (const std::string& name : exported_names) {
    Gobble gobble = nullptr;
    void* const object = module.find<Make_Anything>(name.c_str())(&gobble);
    gobble(nullptr);
    gobble(object);
  }
}

TEST_F(Module_Test, Disposal_Is_Known_Even_When_There_Is_No_Memory) {
  const Loaded_Module module;
  for (const std::string& name : exported_names) {
    const auto make = module.find<Make_Anything>(name.c_str());
    Gobble gobble = nullptr;
    errno = 0;
    void* object = &gobble;
    {
      const counted_memory::None_Left none_left;
      object = make(&gobble);
    }
    EXPECT_EQ(errno, ENOMEM) << name;
    EXPECT_EQ(object, nullptr) << name;
    EXPECT_NE(gobble, nullptr) << name;
  }
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(Module_Test, Parser_Creators_Say_When_There_Is_No_Memory) {
  const Loaded_Module module;
  for (const char* name : parser_factories) {
    Gobble gobble = nullptr;
    Parser_Creator* const creator = module.find<module_factories::Make_Parser_Creator>(name)(&gobble);
    errno = 0;
    YAJL_Handler* handler = nullptr;
    {
      const counted_memory::None_Left none_left;
      handler = creator->create();
    }
    EXPECT_EQ(handler, nullptr) << name;
    EXPECT_EQ(errno, ENOMEM) << name;
    gobble(creator);
  }
}

/// An object whose table of functions writes down which slots are called. It keeps the type of the object it is made
/// after.
class Slots {
 public:
  static constexpr std::size_t count = 8;
  static constexpr std::size_t heading = 2;  ///< offset and type stand before the functions

  explicit Slots(void* original) {
    void** real = nullptr;
    std::memcpy(&real, original, sizeof real);
    std::copy(real - heading, real, entries_);
    fill(std::make_index_sequence<count>());
    table_ = entries_ + heading;
    called.clear();
  }
  static std::vector<std::size_t> called;

 private:
  template <std::size_t N>
  static void note(void*) {
    called.push_back(N);
  }
  template <std::size_t... N>
  void fill(std::index_sequence<N...>) {
    ((entries_[heading + N] = reinterpret_cast<void*>(note<N>)), ...);
  }

  void** table_;  ///< first, as in every object with virtual operations
  void* entries_[heading + count];
};
std::vector<std::size_t> Slots::called;

TEST_F(Module_Test, Disposal_Goes_Through_The_Slots_Of_Its_Interface) {
  // Destructor in slots 0 (complete) and 1 (deleting), init 2, fini 3, create 4, destroy 5; the instance handler has
  // its destructor last: probe_instances 0, get_state 1, logon 2, then 3 and 4; and so have the JSON-RPC handlers:
  // handle_object 0, handle_object_i 1, then 2 and 3.
  struct Row {
    const char* factory;
    std::vector<std::size_t> slots;
  };
  const Row rows[] = {{module_factories::hana_job_creator, {1}},
                      {module_factories::hana_instance_handler, {4}},
                      {module_factories::json_rpc_hana_list_handler, {3}},
                      {module_factories::json_rpc_hana_instance_control_handler, {3}},
                      {module_factories::json_rpc_hana_file_download_handler, {3}},
                      {module_factories::hana_backup_job_options_parser_creator, {3, 1}},
                      {module_factories::hana_backup_job_source_parser_creator, {3, 1}},
                      {module_factories::hana_restore_job_source_parser_creator, {3, 1}},
                      {module_factories::hana_restore_job_options_parser_creator, {3, 1}}};
  const Loaded_Module module;
  for (const Row& row : rows) {
    Gobble gobble = nullptr;
    void* const object = module.find<Make_Anything>(row.factory)(&gobble);
    Slots stand_in(object);
    gobble(&stand_in);
    EXPECT_EQ(Slots::called, row.slots) << row.factory;
    gobble(object);
  }
}

TEST_F(Module_Test, Objects_Have_Their_Operations_In_The_Fixed_Slots) {
  const Loaded_Module module;
  Gobble gobble = nullptr;
  Parser_Creator* const creator = module.find<module_factories::Make_Parser_Creator>(parser_factories[1])(&gobble);
  // The tables are read as the platform lays them out: a pointer to functions at the start of the object.
  using Create = YAJL_Handler* (*)(Parser_Creator*);
  using Destroy = void (*)(Parser_Creator*, YAJL_Handler*);
  using Count = int (*)(Parser_Creator*);
  void** table = nullptr;
  std::memcpy(&table, static_cast<void*>(creator), sizeof table);
  EXPECT_EQ(reinterpret_cast<Count>(table[3])(creator), 0);
  YAJL_Handler* const handler = reinterpret_cast<Create>(table[4])(creator);
  ASSERT_NE(handler, nullptr);
  void** parser_table = nullptr;
  std::memcpy(&parser_table, static_cast<void*>(handler), sizeof parser_table);
  // Behind the destructor: null, boolean, integer, double, number, string, start_map, map_key, end_map, start_array,
  // end_array.
  using Event = bool (*)(YAJL_Handler*);
  using Text = bool (*)(YAJL_Handler*, const char*, std::size_t);
  EXPECT_TRUE(reinterpret_cast<Event>(parser_table[8])(handler));
  EXPECT_TRUE(reinterpret_cast<Text>(parser_table[9])(handler, "id", 2));
  EXPECT_TRUE(reinterpret_cast<Text>(parser_table[7])(handler, "r", 1));
  EXPECT_TRUE(reinterpret_cast<Text>(parser_table[9])(handler, "entries", 7));
  EXPECT_TRUE(reinterpret_cast<Event>(parser_table[11])(handler));
  EXPECT_TRUE(reinterpret_cast<Event>(parser_table[12])(handler));
  EXPECT_TRUE(reinterpret_cast<Event>(parser_table[10])(handler));
  reinterpret_cast<Destroy>(table[5])(creator, handler);
  gobble(creator);
}

TEST_F(Module_Test, Parsers_Read_Documents_Across_The_Border) {
  struct Row {
    const char* factory;
    const char* text;
    const char* written;
  };
  const Row sources[] = {
      {module_factories::hana_backup_job_source_parser_creator,
       R"({"id":"r","name":"HDB_HDB00","entries":["hana/HDB00/TN1"]})",
       R"({"id":"r","name":"HDB_HDB00","entries":["hana/HDB00/TN1"]})"},
      {module_factories::hana_restore_job_source_parser_creator,
       R"({"id":"r","name":"n","entries":[{"catalog_uuid":"c","original":{"database":"A","sid":"S"}}]})",
       R"({"id":"r","name":"n","entries":[{"catalog_uuid":"c","original":{"sid":"S","database":"A"},"restore_as":{"database":"A"}}]})"}};
  const Row options[] = {{module_factories::hana_backup_job_options_parser_creator, R"({"compression":"zstd"})",
                          R"({"compression":"zstd","compression_level":1})"},
                         {module_factories::hana_restore_job_options_parser_creator, R"({"ignore_delta":true})", "{}"}};
  const Loaded_Module module;
  const auto drive = [&module](const Row& row, auto read) {
    Gobble gobble = nullptr;
    Parser_Creator* const creator = module.find<module_factories::Make_Parser_Creator>(row.factory)(&gobble);
    YAJL_Handler* const first = creator->create();
    YAJL_Handler* const second = creator->create();
    EXPECT_NE(first, second) << "each call makes a fresh parser";
    EXPECT_TRUE(parse_json(row.text, *first).ok) << row.text;
    EXPECT_EQ(read(*first), row.written);
    creator->destroy(first);
    creator->destroy(second);
    creator->destroy(nullptr);
    gobble(creator);
  };
  for (const Row& row : sources)
    drive(row, [](YAJL_Handler& handler) {
      const YAJL_Generator generator;
      auto* const parser = dynamic_cast<YAJL_Parser<Job_Source>*>(&handler);
      if (parser == nullptr || parser->result()->generate(generator.handle()) != 0) return std::string("no source");
      return generator.text();
    });
  for (const Row& row : options)
    drive(row, [](YAJL_Handler& handler) {
      const YAJL_Generator generator;
      auto* const parser = dynamic_cast<YAJL_Parser<Job_Options>*>(&handler);
      if (parser == nullptr || parser->result()->generate(generator.handle()) != 0) return std::string("no options");
      return generator.text();
    });
}

TEST_F(Module_Test, Parser_Refuses_Across_The_Border) {
  const Loaded_Module module;
  Gobble gobble = nullptr;
  Parser_Creator* const creator = module.find<module_factories::Make_Parser_Creator>(
      module_factories::hana_restore_job_source_parser_creator)(&gobble);
  YAJL_Handler* const handler = creator->create();
  const JSON_Parse_Result outcome = parse_json(R"({"id":"a","entries":[]})", *handler);
  EXPECT_FALSE(outcome.ok);
  EXPECT_EQ(outcome.code, JSON_PARSER_E_EXPECT_KEY);
  EXPECT_TRUE(log_.claim("Failed to parse HANA restore job definition source, lack of 'name'.\n")) << log_.dump();
  creator->destroy(handler);
  gobble(creator);
}

TEST_F(Module_Test, Job_Creator_Makes_And_Refuses_Jobs) {
  const Loaded_Module module;
  Gobble gobble = nullptr;
  Job_Creator* const creator =
      module.find<module_factories::Make_Job_Creator>(module_factories::hana_job_creator)(&gobble);
  const Job_Definition_Ptr definition(new Job_Definition);
  definition->type(JOB_DEFINITION_BACKUP);
  definition->subtype(JOB_DEFINITION_SUBTYPE_FULL);
  for (const Job_Definition_Subtype subtype : {JOB_DEFINITION_SUBTYPE_FULL, JOB_DEFINITION_SUBTYPE_ONDEMAND}) {
    definition->subtype(subtype);
    const Job_Ptr job = creator->create(definition);
    ASSERT_NE(job.get(), nullptr) << subtype;
    EXPECT_EQ(job->definition().get(), definition.get());
    EXPECT_EQ(job->state(), JOB_STATE_NONE);
  }
  definition->subtype(JOB_DEFINITION_SUBTYPE_CONTINUOUS);
  EXPECT_EQ(creator->create(definition).get(), nullptr);
  EXPECT_TRUE(log_.claim("continuous is not supported\n"));
  definition->type(JOB_DEFINITION_RESTORE);
  definition->subtype(JOB_DEFINITION_SUBTYPE_POINT_IN_TIME);
  {
    const Job_Ptr job = creator->create(definition);
    ASSERT_NE(job.get(), nullptr);
    EXPECT_EQ(job->definition().get(), definition.get());
  }
  definition->subtype(JOB_DEFINITION_SUBTYPE_FULL);
  EXPECT_EQ(creator->create(definition).get(), nullptr);
  EXPECT_TRUE(log_.claim("full is not supported\n"));
  gobble(creator);
}

TEST_F(Module_Test, Instance_Handler_Answers) {
  const Loaded_Module module;
  Gobble gobble = nullptr;
  Instance_Handler* const handler =
      module.find<module_factories::Make_Instance_Handler>(module_factories::hana_instance_handler)(&gobble);
  std::string state;
  EXPECT_EQ(handler->get_state(nullptr, state), "error");
  EXPECT_EQ(state, "error");
  EXPECT_EQ(handler->logon("HDB_HDB00", nullptr, nullptr, nullptr), Instance_Handler::LOGON_OK);
  gobble(handler);
}

/// The requester of one call; what it is answered stands in `text`.
class Requester : public JSON_RPC_Channel {
 public:
  int close() override { return 0; }
  int send(std::shared_ptr<JSON_RPC_Object> object) override {
    const auto* response = dynamic_cast<const JSON_RPC_Response*>(object.get());
    text = response == nullptr ? "no response" : json_spirit::dump_json(response->result);
    answered.set();
    return 0;
  }
  int send_error(int code, const json_spirit::Value&, const std::string& message, const json_spirit::Value&) override {
    text = std::to_string(code) + " " + message;
    answered.set();
    return 0;
  }

  std::string text;
  platform::Wait_Event answered;
};

/// What the handler of a factory answers, on whatever thread.
std::string ask(const Loaded_Module& module, const char* factory, const json_spirit::Value& params) {
  Gobble gobble = nullptr;
  JSON_RPC_Handler* const handler = module.find<module_factories::Make_JSON_RPC_Handler>(factory)(&gobble);
  const auto requester = std::make_shared<Requester>();
  EXPECT_EQ(handler->handle_object(requester, std::make_shared<JSON_RPC_Request>(1, "not looked at", params)), 0);
  EXPECT_TRUE(platform::Clock::current().wait_for(requester->answered, std::chrono::seconds(20)));
  gobble(handler);
  return requester->text;
}

TEST_F(Module_Test, Json_Rpc_Handlers_Answer) {
  const support::Temp_Root root;
  root.write("/etc/group", "sapsys:x:" + std::to_string(::getgid()) + ":\n");
  const json_spirit::Object restore{
      {"origin_sid", "ABC"}, {"origin_database", "TN1"}, {"target_sid", "HDB"}, {"target_database", "TN2"}};
  {
    const Loaded_Module module;
    EXPECT_EQ(ask(module, module_factories::json_rpc_hana_list_handler, nullptr), "[]") << "no HANA on this host";
    EXPECT_EQ(ask(module, module_factories::json_rpc_hana_instance_control_handler,
                  json_spirit::Object{{"sid", "HDB"}, {"instance_name", "HDB00"}, {"action", "pause"}}),
              "-32602 action is not supported\n");
    EXPECT_EQ(ask(module, module_factories::json_rpc_hana_file_download_handler, restore), R"({"error":0})");
  }
  EXPECT_TRUE(root.exists("/var/opt/tarvex/dorsal3/agent/hana/catalog/catalog_ABC_TN1_HDB_TN2.json"));
  EXPECT_FALSE(is_mapped()) << "the threads of a handler have left nothing of the module behind";
}

TEST_F(Module_Test, Json_Rpc_Handlers_Say_When_There_Is_No_Memory_For_The_Answer) {
  const support::Temp_Root root;
  root.write("/etc/group", "sapsys:x:" + std::to_string(::getgid()) + ":\n");
  const auto requester = std::make_shared<Requester>();
  const auto request = std::make_shared<JSON_RPC_Request>(
      1, "m",
      json_spirit::Object{
          {"origin_sid", "ABC"}, {"origin_database", "TN1"}, {"target_sid", "HDB"}, {"target_database", "TN2"}});
  const Loaded_Module module;
  Gobble gobble = nullptr;
  JSON_RPC_Handler* const handler = module.find<module_factories::Make_JSON_RPC_Handler>(
      module_factories::json_rpc_hana_file_download_handler)(&gobble);
  int result = 0;
  errno = 0;
  {
    const counted_memory::None_Left none_left;
    result = handler->handle_object(requester, request);
  }
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(result, -1);
  EXPECT_FALSE(requester->answered.is_set()) << requester->text;
  EXPECT_TRUE(root.exists("/var/opt/tarvex/dorsal3/agent/hana/catalog/catalog_ABC_TN1_HDB_TN2.json"))
      << "what was done stays";
  gobble(handler);
}

/// Loads, makes and disposes of one of everything, with a parser and a job in use, and unloads.
void one_round() {
  Loaded_Module module;
  ASSERT_TRUE(module.loaded());
  for (const std::string& name : exported_names) {
    Gobble gobble = nullptr;
    void* const object = module.find<Make_Anything>(name.c_str())(&gobble);
    gobble(object);
  }
  Gobble gobble = nullptr;
  Parser_Creator* const parsers = module.find<module_factories::Make_Parser_Creator>(parser_factories[0])(&gobble);
  YAJL_Handler* const parser = parsers->create();
  EXPECT_TRUE(parse_json(R"({"compression":"zstd","compression_level":3})", *parser).ok);
  parsers->destroy(parser);
  gobble(parsers);
  Job_Creator* const jobs =
      module.find<module_factories::Make_Job_Creator>(module_factories::hana_job_creator)(&gobble);
  const Job_Definition_Ptr definition(new Job_Definition);
  definition->type(JOB_DEFINITION_BACKUP);
  definition->subtype(JOB_DEFINITION_SUBTYPE_INCREMENTAL);
  EXPECT_NE(jobs->create(definition).get(), nullptr);
  gobble(jobs);
  module.unload();
}

TEST_F(Module_Test, Is_Really_Unloaded) {
  ASSERT_FALSE(is_mapped());
  {
    const Loaded_Module module;
    EXPECT_TRUE(is_mapped());
  }
  EXPECT_FALSE(is_mapped());
  one_round();
  EXPECT_FALSE(is_mapped()) << "also after its objects were used";
}

TEST_F(Module_Test, Is_Really_Unloaded_After_A_Run) {
  const support::Temp_Root root;
  {
    const Loaded_Module module;
    Gobble gobble = nullptr;
    Job_Creator* const creator =
        module.find<module_factories::Make_Job_Creator>(module_factories::hana_job_creator)(&gobble);
    {
      const Job_Definition_Ptr definition(new Job_Definition);
      definition->type(JOB_DEFINITION_BACKUP);
      definition->subtype(JOB_DEFINITION_SUBTYPE_FULL);
      definition->source.reset(new Default_Backup_Job_Source);
      const Job_Ptr job = creator->create(definition);
      ASSERT_NE(job.get(), nullptr);
      EXPECT_EQ(job->start(nullptr), 0);
      ACE_Thread_Manager::instance()->wait();
      EXPECT_EQ(job->state(), JOB_STATE_SKIPPED) << "there is no server to ask for the resource";
    }
    gobble(creator);
  }
  EXPECT_FALSE(is_mapped()) << "a thread has left nothing of the module behind";
  EXPECT_TRUE(log_.claim("Failed to get resource info to check if the node is active\n")) << log_.dump();
  log_.claim_all();
}

// A sanitizer keeps a record of every library that was ever loaded: its own memory grows, and rounds get slow.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool instrumented = true;
#else
constexpr bool instrumented = false;
#endif

TEST_F(Module_Test, Ten_Thousand_Rounds_Grow_Nothing) {
  constexpr int warm_up_rounds = 200;
  constexpr int rounds = instrumented ? 200 : 10'000;
  constexpr long resident_slack_kib = 1024;
  for (int round = 0; round < warm_up_rounds; ++round) one_round();
  const long blocks = counted_memory::blocks();
  const long resident = resident_kib();
  const std::size_t descriptors = open_descriptors();
  for (int round = 0; round < rounds; ++round) {
    one_round();
    if (HasFailure()) break;
  }
  EXPECT_EQ(counted_memory::blocks(), blocks);
  EXPECT_EQ(open_descriptors(), descriptors);
  if (!instrumented) {
    EXPECT_LE(resident_kib() - resident, resident_slack_kib);
  }
  EXPECT_FALSE(is_mapped());
}

}  // namespace

// A sanitizer keeps released memory back; a bound makes the growth that it would hide visible.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "quarantine_size_mb=1:alloc_dealloc_mismatch=0"; }
