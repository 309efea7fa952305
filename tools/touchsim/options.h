// What the command line asks for.

#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace touchsim {

struct Options {
    std::string file = "-";
    // Panel and its flags, in the order in which the service tells of them.
    std::vector<std::pair<int8_t, int64_t>> panels;
    bool loop = false;
    bool stay = false;
    // Delays are divided by it; 0: no delays.
    double speed = 1;
    // How many calls to refuse, by panel, and of getPanelInfo.
    std::map<int8_t, int> fail_register;
    int fail_panel_info = 0;
    // The calls inside which the process stops itself: that of the panel, and getPanelInfo.
    std::optional<int8_t> stop_register;
    bool stop_panel_info = false;
    // The gesture with which the process kills itself; 0: none.
    int64_t die_after = 0;
};

// Nothing, and the exit status in `*status`, if the program is to end at once: after a request for
// help, or a mistake, which has been explained on standard error.
std::optional<Options> ParseOptions(int argc, char** argv, int* status);

}  // namespace touchsim
