// What a resolved program must keep to before code is made of it. Not thread-safe.

#pragma once

#include "program.h"

namespace host::aidl {

// Notes every breach. `vintf`: the package is one of the device's stable interfaces, so each of its
// types must be annotated as such.
void Check(Program* program, bool vintf);

}  // namespace host::aidl
