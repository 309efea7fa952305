#include "output.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace velmoractl {

Output::Output(bool json)
        : json_(json),
          colour_(!json && isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr) {}

void Output::Print(const Json& object, const std::string& text) const {
    const std::string line = (json_ ? OneLine(object) : text) + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    if (std::fflush(stdout) == 0) return;
    Talk("cannot write to standard output");
    std::_Exit(kError);
}

void Output::Talk(const std::string& sentence) const {
    std::fprintf(stderr, "velmoractl: %s\n", sentence.c_str());
}

std::string Output::Strong(const std::string& text) const {
    return colour_ ? "\033[1m" + text + "\033[0m" : text;
}

std::string OneLine(const Json& value) {
    return value.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace velmoractl
