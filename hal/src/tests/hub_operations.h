// Sequences of operations on a hub, spelled by bytes, and their comparison with the model.
//
// Threads: any; different calls are independent.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hub_model.h"

namespace velmora_test {

// Applies the sequence to a hub of its own and to the model, and compares answers, tokens, dumps
// and what each client was told, in order. At times the hub's worker is held, so that notifications
// queue up, now and then more than the queue takes. Returns the first difference with the number of
// its operation; empty if there is none. Any bytes are a sequence.
std::string FirstDifference(const std::vector<uint8_t>& bytes, const HubModel::Rules& rules = {});

}  // namespace velmora_test
