#pragma once

#include <yajl/yajl_common.h>

/// Memory for yajl that is wiped before it is given back: what it reads or writes may hold a secret. Any thread.
extern const yajl_alloc_funcs wiping_allocation;
