#pragma once

#include "agent/api/instance_handler.h"
#include "agent/api/job_creator.h"
#include "agent/api/json_rpc_handler.h"
#include "json/yajl_handler.h"
#include "scrt/object_creator_t.h"

// How the agent finds a module's objects: unmangled functions, looked up by these names and nothing else. A module may
// lack some of them; the agent then does without.

namespace module_factories {

/// Destroys what the factory that handed it out made; null is ignored. Called once, before the module is unloaded.
using Gobble = void (*)(void* object);

/// Each stores the disposal function where `gobble` points, unless that is null, before it makes the object; null with
/// errno ENOMEM when there is no memory.
template <typename Interface>
using Make_T = Interface* (*)(Gobble* gobble);

using Make_Job_Creator = Make_T<Job_Creator>;
using Make_Instance_Handler = Make_T<Instance_Handler>;
using Make_JSON_RPC_Handler = Make_T<JSON_RPC_Handler>;
using Make_Parser_Creator = Make_T<Object_Creator_T<YAJL_Handler>>;

inline constexpr const char* hana_job_creator = "_make_HANA_Job_Creator";
inline constexpr const char* hana_instance_handler = "_make_HANA_Instance_Handler";
inline constexpr const char* json_rpc_hana_list_handler = "_make_JSON_RPC_HANA_List_Handler";
inline constexpr const char* json_rpc_hana_instance_control_handler = "_make_JSON_RPC_HANA_Instance_Control_Handler";
inline constexpr const char* json_rpc_hana_file_download_handler = "_make_JSON_RPC_HANA_File_Download_Handler";
inline constexpr const char* hana_backup_job_options_parser_creator = "_make_HANA_Backup_Job_Options_Parser_Creator";
inline constexpr const char* hana_backup_job_source_parser_creator = "_make_HANA_Backup_Job_Source_Parser_Creator";
inline constexpr const char* hana_restore_job_source_parser_creator = "_make_HANA_Restore_Job_Source_Parser_Creator";
inline constexpr const char* hana_restore_job_options_parser_creator = "_make_HANA_Restore_Job_Options_Parser_Creator";

}  // namespace module_factories
