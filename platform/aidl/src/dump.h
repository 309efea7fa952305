// The normal form of a document. Stateless.

#pragma once

#include <string>

#include "ast.h"

namespace host::aidl {

// What of a checked document decides how it crosses processes and what it looks like to programs,
// as AIDL text that means the same: no comments, one order and spacing, every name qualified, every
// constant computed. Two documents are the same interface exactly if their dumps are the same
// bytes.
std::string Dump(const Document& document);

}  // namespace host::aidl
