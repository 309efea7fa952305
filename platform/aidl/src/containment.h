// Which types hold which. Stateless.

#pragma once

#include <vector>

#include "ast.h"

namespace host::aidl {

// The outermost types whose headers must be complete before that of `top`: those of its fields,
// and those around nested types it names. Sorted by name, without `top`.
std::vector<const TypeDecl*> NeededComplete(const TypeDecl& top);

// All outermost types that it names anywhere. Sorted by name, without `top`.
std::vector<const TypeDecl*> Named(const TypeDecl& top);

// Does following Named from `from` lead to `to`?
bool Reaches(const TypeDecl& from, const TypeDecl& to);

// The types nested in `type`, each after those it names; as declared where that leaves a choice.
// *cyclic: there is no such order, and the one given is as declared.
std::vector<const TypeDecl*> NestedInOrder(const TypeDecl& type, bool* cyclic);

}  // namespace host::aidl
