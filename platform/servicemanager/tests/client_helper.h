// The helper process that the tests across processes drive: a client and publisher of services. Its
// commands, each answered by one line:
//
//   publish NAME TEXT     publishes an object that says TEXT: the exception's number
//   stable NAME TEXT      the same with a VINTF-stable object
//   republish FROM TO     publishes what FROM finds under another name: the exception's number
//   check|get|wait NAME   looks the service up: "null", "own TEXT" for an object of its own, or
//                         "PID says TEXT" as the service answers to a call
//   keep NAME, ask        looks a service up and keeps it; then asks the kept one, as check does
//   begin NAME, end       begins a wait on a thread of its own; its outcome, as of wait
//   declared NAME         "yes" or "no"
//   fail CALL N           makes the N-th system call of that name fail for want of descriptors
//   failed                whether it has: "yes" or "no"
//   list                  "NAME declared|undeclared PID; " for each
#pragma once

#include <host_testing.h>

#include <string>

namespace host::testing {

// What a look-up answers that has found the object of that helper.
inline std::string Says(const Helper& helper, const std::string& text) {
    return std::to_string(helper.pid()) + " says " + text;
}

}  // namespace host::testing
