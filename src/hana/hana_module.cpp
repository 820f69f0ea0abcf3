// What the module offers: one factory an object, and nothing else leaves it. The agent finds a factory by its name,
// gets the object's disposal function with it, and calls the object through its interface. The names stand in
// exports.map too.

#include <cerrno>
#include <new>

#include "agent/api/module_factories.h"
#include "hana/instance/hana_instance_handler.h"
#include "hana/job/backup_job_options_parser.h"
#include "hana/job/hana_job_creator.h"
#include "hana/job/restore_job_options_parser.h"
#include "hana/job/restore_job_source_parser.h"
#include "hana/websvcs_agent/json_rpc_hana_file_download_handler.h"
#include "hana/websvcs_agent/json_rpc_hana_instance_control_handler.h"
#include "hana/websvcs_agent/json_rpc_hana_list_handler.h"
#include "job/default_backup_job_source_parser.h"
#include "scrt/object_creator_impl_t.h"

namespace {

using module_factories::Gobble;
using Parser_Creator = Object_Creator_T<YAJL_Handler>;

/// Stores the disposal function first, so that it is known even when there is no memory for the object.
template <typename Interface, typename Object>
Interface* make(Gobble* slot, Gobble gobble) {
  if (slot != nullptr) *slot = gobble;
  Interface* const object = new (std::nothrow) Object;
  if (object == nullptr) errno = ENOMEM;
  return object;
}

template <typename Parser>
Parser_Creator* make_parser_creator(Gobble* slot, Gobble gobble) {
  return make<Parser_Creator, Object_Creator_Impl_T<Parser_Creator, Parser>>(slot, gobble);
}

void gobble_parser_creator(void* object) {
  auto* const creator = static_cast<Parser_Creator*>(object);
  if (creator == nullptr) return;
  static_cast<void>(creator->fini());
  delete creator;
}

void _gobble_HANA_Job_Creator(void* object) { delete static_cast<Job_Creator*>(object); }
void _gobble_HANA_Instance_Handler(void* object) { delete static_cast<Instance_Handler*>(object); }
void gobble_rpc_handler(void* object) { delete static_cast<JSON_RPC_Handler*>(object); }
void _gobble_JSON_RPC_HANA_List_Handler(void* object) { gobble_rpc_handler(object); }
void _gobble_JSON_RPC_HANA_Instance_Control_Handler(void* object) { gobble_rpc_handler(object); }
void _gobble_JSON_RPC_HANA_File_Download_Handler(void* object) { gobble_rpc_handler(object); }
void _gobble_HANA_Backup_Job_Options_Parser_Creator(void* object) { gobble_parser_creator(object); }
void _gobble_HANA_Backup_Job_Source_Parser_Creator(void* object) { gobble_parser_creator(object); }
void _gobble_HANA_Restore_Job_Source_Parser_Creator(void* object) { gobble_parser_creator(object); }
void _gobble_HANA_Restore_Job_Options_Parser_Creator(void* object) { gobble_parser_creator(object); }

}  // namespace

#define HANA_EXPORT extern "C" __attribute__((visibility("default")))

HANA_EXPORT Job_Creator* _make_HANA_Job_Creator(Gobble* gobble) {
  return make<Job_Creator, HANA_Job_Creator>(gobble, _gobble_HANA_Job_Creator);
}

HANA_EXPORT Instance_Handler* _make_HANA_Instance_Handler(Gobble* gobble) {
  return make<Instance_Handler, HANA_Instance_Handler>(gobble, _gobble_HANA_Instance_Handler);
}

HANA_EXPORT JSON_RPC_Handler* _make_JSON_RPC_HANA_List_Handler(Gobble* gobble) {
  return make<JSON_RPC_Handler, JSON_RPC_HANA_List_Handler>(gobble, _gobble_JSON_RPC_HANA_List_Handler);
}

HANA_EXPORT JSON_RPC_Handler* _make_JSON_RPC_HANA_Instance_Control_Handler(Gobble* gobble) {
  return make<JSON_RPC_Handler, JSON_RPC_HANA_Instance_Control_Handler>(gobble,
                                                                        _gobble_JSON_RPC_HANA_Instance_Control_Handler);
}

HANA_EXPORT JSON_RPC_Handler* _make_JSON_RPC_HANA_File_Download_Handler(Gobble* gobble) {
  return make<JSON_RPC_Handler, JSON_RPC_HANA_File_Download_Handler>(gobble,
                                                                     _gobble_JSON_RPC_HANA_File_Download_Handler);
}

HANA_EXPORT Parser_Creator* _make_HANA_Backup_Job_Options_Parser_Creator(Gobble* gobble) {
  return make_parser_creator<sap_hana::Backup_Job_Options_Parser>(gobble,
                                                                  _gobble_HANA_Backup_Job_Options_Parser_Creator);
}

HANA_EXPORT Parser_Creator* _make_HANA_Backup_Job_Source_Parser_Creator(Gobble* gobble) {
  return make_parser_creator<Default_Backup_Job_Source_Parser>(gobble, _gobble_HANA_Backup_Job_Source_Parser_Creator);
}

HANA_EXPORT Parser_Creator* _make_HANA_Restore_Job_Source_Parser_Creator(Gobble* gobble) {
  return make_parser_creator<sap_hana::Restore_Job_Source_Parser>(gobble,
                                                                  _gobble_HANA_Restore_Job_Source_Parser_Creator);
}

HANA_EXPORT Parser_Creator* _make_HANA_Restore_Job_Options_Parser_Creator(Gobble* gobble) {
  return make_parser_creator<sap_hana::Restore_Job_Options_Parser>(gobble,
                                                                   _gobble_HANA_Restore_Job_Options_Parser_Creator);
}
