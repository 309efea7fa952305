// Values of constants, enumerators and defaults. Not thread-safe.

#pragma once

#include "program.h"

namespace host::aidl {

// Computes Variable::value and Enumerator::value in all documents of a resolved program. Notes
// values that do not fit their type, overflow, division by zero, and definitions in terms of
// themselves.
void EvaluateConstants(Program* program);

}  // namespace host::aidl
