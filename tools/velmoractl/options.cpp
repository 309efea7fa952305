#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <limits>
#include <sstream>

#include "output.h"

namespace velmoractl {

namespace {

constexpr char kFooter[] =
        "Data goes to standard output, one object per line with --json; talk to standard error.\n"
        "Exit status: 0 done, 1 error, 2 wrong usage, 3 timeout, 4 not found.\n"
        "Every verb takes --json, and --timeout SECONDS after which it gives up.\n"
        "\n"
        "Examples:\n"
        "  velmoractl list\n"
        "  velmoractl watch 2\n"
        "  velmoractl watch 2 --json --count 10 >events\n"
        "  velmoractl push 7 --file events --rate 5\n"
        "\n"
        "velmoractl VERB --help tells more.";

constexpr char kWatchFooter[] =
        "Goes on across the death of the hub. When a producer registers, the subscription is\n"
        "taken anew, so that the producer hears of it.\n"
        "\n"
        "Examples:\n"
        "  velmoractl watch 2 7\n"
        "  velmoractl watch 2 --json --count 1 --timeout 10";

constexpr char kPushFooter[] =
        "A line is a JSON object as `watch --json` prints it; what is not an event is skipped.\n"
        "`timestampMs` (default: now) and `payload` are optional. A payload is a `type` with its\n"
        "`value` (UserEngagementPayload, SignalDescriptor) or with any type's `bytes` in hex.\n"
        "With --rate and no --file, events are made up. The hub drops what comes faster than its\n"
        "consumers take it.\n"
        "\n"
        "Examples:\n"
        "  echo '{\"payload\":{\"type\":\"SignalDescriptor\",\"value\":{\"tags\":[\"hello\"]}}}' "
        "|\n"
        "      velmoractl push 7\n"
        "  velmoractl push 7 --rate 10 --count 100\n"
        "  velmoractl watch 2 --json | velmoractl push 7";

// Unlike CLI::Range refuses what is no number at all.
CLI::Validator Between(double least, double most) {
    return CLI::Validator(
            [least, most](const std::string& text) {
                char* end = nullptr;
                const double value = std::strtod(text.c_str(), &end);
                if (*end == '\0' && value >= least && value <= most) return std::string();
                std::ostringstream error;
                error << "'" << text << "' is no number from " << least << " to " << most;
                return error.str();
            },
            "");
}

CLI::App* AddVerb(CLI::App& app, const std::string& name, const std::string& help,
                  Options& options) {
    CLI::App* verb = app.add_subcommand(name, help);
    verb->add_flag("--json", options.json, "One JSON object per line");
    verb->add_option("--timeout", options.timeout, "Give up after that time, with status 3")
            ->type_name("SECONDS")
            ->check(Between(0, 1e9));
    return verb;
}

void AddCount(CLI::App* verb, Options& options) {
    verb->add_option("--count", options.count, "End after so many events")
            ->type_name("N")
            ->check(CLI::Range(int64_t{1}, int64_t{1'000'000'000}));
}

CLI::Option* AddSignals(CLI::App* verb, Options& options) {
    return verb->add_option("SIGNAL", options.signals, "A signal's id, a number")
            ->type_name("")
            ->required();
}

void AddPush(CLI::App& app, Options& options) {
    CLI::App* push = AddVerb(app, "push", "Register a signal and push events for it", options);
    push->footer(kPushFooter);
    AddSignals(push, options)->expected(1);
    AddCount(push, options);
    push->add_option("--file", options.file, "Read the lines from there; - for standard input")
            ->type_name("PATH")
            ->check(CLI::ExistingFile | CLI::IsMember({"-"}));
    push->add_option("--rate", options.rate, "Push at most so many events per second")
            ->type_name("N")
            ->check(Between(1e-3, 1e6));
    push->add_option("--ttl", options.ttl_ms, "The time-to-live to register with")
            ->type_name("MS")
            ->check(CLI::Range(int64_t{0}, std::numeric_limits<int64_t>::max()));
    push->add_flag("--wait", options.wait, "Begin when the hub first tells of consumers");
}

void AddVerbs(CLI::App& app, Options& options) {
    AddVerb(app, "list", "Services, and the signals of the hub", options);
    AddVerb(app, "dump", "What the hub says of its tables", options)
            ->add_option("TABLE", options.table, "Only this one: producers or consumers")
            ->type_name("")
            ->check(CLI::IsMember({"producers", "consumers"}));
    CLI::App* watch = AddVerb(app, "watch", "Show what happens to signals", options);
    watch->footer(kWatchFooter);
    AddSignals(watch, options);
    AddCount(watch, options);
    AddPush(app, options);
    AddSignals(AddVerb(app, "nudge", "Ask a signal's producer for an update", options), options)
            ->expected(1);
}

}  // namespace

std::variant<Options, int> ParseOptions(int argc, char** argv) {
    Options options;
    CLI::App app("Looks at a signal hub, and takes part in it by hand.", "velmoractl");
    app.footer(kFooter);
    app.require_subcommand(0, 1);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("velmoractl: ") + error.what() + "\nvelmoractl --help tells more.\n";
    });
    AddVerbs(app, options);
    try {
        app.parse(argc, argv);
        if (app.get_subcommands().empty()) throw CLI::RequiredError("A verb");
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kDone : kUsage;
    }
    options.verb = app.get_subcommands().front()->get_name();
    std::sort(options.signals.begin(), options.signals.end());
    options.signals.erase(std::unique(options.signals.begin(), options.signals.end()),
                          options.signals.end());
    return options;
}

}  // namespace velmoractl
