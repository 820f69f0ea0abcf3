#pragma once

#include "json/value.h"

/// Options of a request to a job, in the order given. Handed on as a pointer that is null when there are none.
using Action_Options = json_spirit::Object;
