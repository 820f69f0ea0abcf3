// The interfaces stand in headers; compiled here so that each is known to stand alone.
#include "agent/api/instance.h"
#include "agent/api/instance_handler.h"
#include "agent/api/job_creator.h"
#include "agent/api/json_rpc_channel.h"
#include "agent/api/json_rpc_handler.h"
#include "agent/api/json_rpc_object.h"
#include "agent/api/module_factories.h"
