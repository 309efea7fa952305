#include "options.h"

#include <CLI/CLI.hpp>
#include <climits>
#include <cstdlib>
#include <iostream>
#include <limits>

namespace touchsim {

namespace {

constexpr int kUsageError = 2;

// A day's pause is not quite three years then; slower ones do not fit a clock.
constexpr double kSlowest = 0.001;

constexpr char kDescription[] =
        "Plays the device's touch-input service: publishes it, and sends the gestures of a script\n"
        "to every listener that registers. Starts when each panel has a listener.";

constexpr char kFooter[] =
        "A script has one JSON object to a line:\n"
        "  {\"gesture\": \"touch_down\", \"position\": [0.25, 0.5], \"size\": [0.1, 0.2]}\n"
        "  {\"gesture\": \"tap\", \"type\": \"single|double|long\", \"position\": [0.4, 0.7], "
        "\"panel\": 1}\n"
        "  {\"gesture\": \"scroll\", \"direction\": \"up|down|left|right\", \"delay\": 250}\n"
        "  {\"gesture\": \"zoom\", \"type\": \"in|out\", \"points\": [[0.4, 0.5], [0.6, 0.5]]}\n"
        "  {\"raw\": \"0a02ff\"}   {\"ear_cheek\": 1}\n"
        "\"delay\" is the pause before it, in milliseconds.\n"
        "Exit status: 0 done, 1 error, 2 wrong usage.\n"
        "\n"
        "Examples:\n"
        "  touchsim tools/touchsim/samples/minute.jsonl\n"
        "  echo '{\"gesture\": \"tap\", \"type\": \"single\", \"position\": [0.5, 0.5]}' | "
        "touchsim\n"
        "  touchsim --panels 0,1 --loop --speed 10 --die-after 100 SCRIPT\n"
        "  touchsim --fail-register 1:2 --fail-panel-info 3 SCRIPT";

// "A" or "A:B" with A a panel; false if it is neither.
bool ParsePair(const std::string& text, int8_t* panel, int64_t* number) {
    char* end = nullptr;
    const long id = std::strtol(text.c_str(), &end, 0);
    if (end == text.c_str() || id < SCHAR_MIN || id > SCHAR_MAX) return false;
    *panel = static_cast<int8_t>(id);
    if (*end == '\0') return true;
    const char* rest = end + 1;
    if (*end != ':' || *rest == '\0') return false;
    *number = static_cast<int64_t>(std::strtoull(rest, &end, 0));
    return *end == '\0';
}

CLI::Validator IsPair(int64_t most = std::numeric_limits<int64_t>::max()) {
    return CLI::Validator(
            [most](const std::string& text) {
                int8_t panel;
                int64_t number = 0;
                return ParsePair(text, &panel, &number) && number >= 0 && number <= most
                               ? ""
                               : "'" + text + "' is not PANEL:NUMBER";
            },
            "");
}

// Whatever is no number at all is in no range either.
CLI::Validator IsSpeed() {
    return CLI::Validator(
            [](const std::string& text) {
                char* end = nullptr;
                const double speed = std::strtod(text.c_str(), &end);
                const bool in_range =
                        speed >= kSlowest && speed <= std::numeric_limits<double>::max();
                const bool ok = end != text.c_str() && *end == '\0' && (speed == 0 || in_range);
                return ok ? "" : "'" + text + "' is no speed";
            },
            "");
}

}  // namespace

std::optional<Options> ParseOptions(int argc, char** argv, int* status) {
    Options options;
    std::vector<std::string> panels = {"0", "1"};
    std::vector<std::string> fail_register;
    CLI::App app(kDescription, "touchsim");
    app.footer(kFooter);
    app.add_option("SCRIPT", options.file, "The gestures; - for standard input")
            ->capture_default_str();
    app.add_option("--panels", panels, "PANEL[:FLAGS],...: the panels, 0,1 if not given")
            ->delimiter(',')
            ->allow_extra_args(false)
            ->check(IsPair());
    app.add_flag("--loop", options.loop, "Begin again at the end of the script, which is a file");
    app.add_flag("--stay", options.stay, "Go on serving at the end of the script");
    app.add_option("--speed", options.speed,
                   "How many times faster than written, 0.001 at least; 0: without a pause, each "
                   "call awaited")
            ->check(IsSpeed())
            ->capture_default_str();
    app.add_option("--fail-register", fail_register,
                   "PANEL:TIMES: refuse so many registrations of listeners for the panel")
            ->allow_extra_args(false)
            ->check(IsPair(INT_MAX));
    app.add_option("--fail-panel-info", options.fail_panel_info,
                   "Refuse to tell of the panels so many times")
            ->check(CLI::Range(0, INT_MAX));
    std::optional<int> stop_register;
    app.add_option("--stop-register", stop_register,
                   "PANEL: stop the process (SIGSTOP) inside a registration for the panel")
            ->check(CLI::Range(SCHAR_MIN, SCHAR_MAX));
    app.add_flag("--stop-panel-info", options.stop_panel_info,
                 "Stop the process (SIGSTOP) when it is asked for the panels");
    app.add_option("--die-after", options.die_after, "Kill the process after so many gestures")
            ->check(CLI::Range(int64_t{1}, std::numeric_limits<int64_t>::max()));
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("touchsim: ") + error.what() + "\ntouchsim --help tells more.\n";
    });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        *status = app.exit(error, std::cout, std::cerr) == 0 ? 0 : kUsageError;
        return std::nullopt;
    }
    if (stop_register) options.stop_register = static_cast<int8_t>(*stop_register);
    for (const std::string& text : panels) {
        int64_t flags = 7;
        int8_t panel = 0;
        ParsePair(text, &panel, &flags);
        options.panels.emplace_back(panel, flags);
    }
    for (const std::string& text : fail_register) {
        int64_t times = 1;
        int8_t panel = 0;
        ParsePair(text, &panel, &times);
        options.fail_register[panel] = static_cast<int>(times);
    }
    if (options.loop && options.file == "-") {
        std::cerr << "touchsim: --loop needs a file: standard input comes once\n";
        *status = kUsageError;
        return std::nullopt;
    }
    return options;
}

}  // namespace touchsim
