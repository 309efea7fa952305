// What the program tells of itself. Any thread: lines of several do not mix.

#pragma once

#include <iostream>
#include <string>

namespace touchsim {

// Standard error gets the whole line at once.
inline void Say(const std::string& text) {
    std::cerr << "touchsim: " + text + "\n";
}

}  // namespace touchsim
