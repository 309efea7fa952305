// What tests of the layer and of the product are written with. Only tests include it.
#pragma once

#include "child.h"
#include "child_log.h"
#include "eventually.h"
#include "helper.h"
#include "log_capture.h"
#include "process_facts.h"
#include "scoped_host.h"
#include "transport_hooks.h"
