// Counts what an event costs inside the hub's own code: instructions by callgrind, allocations by
// operator new. Per pushed event: updateSignal, and the dispatch's share that does not grow with
// the consumers. Per delivered event: what one more consumer adds, from 8 consumers to 64.
//
// "in hal/" is what runs in velmora_hub_counted (see counted_hub.h), the same in every run. "with
// callees" adds the layer with its log silenced, the C and C++ libraries and the consumer's empty
// callback, but not the kernel; malloc's share of it moves by a few hundredths from run to run.
// Nobody sleeps while it is counted, so neither has the cost of a wake-up.

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "callgrind_file.h"
#include "event_path_sizes.h"

namespace bench {
namespace {

constexpr double kSlack = 0.1;

struct Cost {
    double hal = 0, all = 0, allocations = 0;
};

Cost operator-(const Cost& a, const Cost& b) {
    return {a.hal - b.hal, a.all - b.all, a.allocations - b.allocations};
}
Cost operator+(const Cost& a, const Cost& b) {
    return {a.hal + b.hal, a.all + b.all, a.allocations + b.allocations};
}
Cost operator*(double factor, const Cost& a) {
    return {factor * a.hal, factor * a.all, factor * a.allocations};
}

[[noreturn]] void Fail(const std::string& why) {
    fprintf(stderr, "event_path_counts: %s\n", why.c_str());
    exit(1);
}

std::string TextOf(const std::filesystem::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Runs the probe with all its output in `log`; true if it came to its end.
bool RunProbe(const std::string& out, const std::string& log) {
    const pid_t child = fork();
    if (child == 0) {
        if (freopen(log.c_str(), "w", stderr) == nullptr) _exit(127);
        setenv("ANDROID_LOG_TAGS", "*:S", 1);
        setenv("LD_BIND_NOW", "1", 1);
        execlp("valgrind", "valgrind", "--tool=callgrind", "--collect-atstart=no",
               "--combine-dumps=yes", "--compress-strings=no", "--compress-pos=no",
               ("--callgrind-out-file=" + out).c_str(), BENCH_PROBE, nullptr);
        perror("valgrind");
        fflush(stderr);
        _exit(127);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

std::vector<Dump> Collect() {
    std::string folder = std::filesystem::temp_directory_path() / "event_path.XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) Fail("no temporary folder");
    const bool ended = RunProbe(folder + "/out", folder + "/log");
    std::ifstream out(folder + "/out");
    std::vector<Dump> dumps = ReadDumps(out);
    const std::string log = TextOf(folder + "/log");
    std::filesystem::remove_all(folder);
    if (!ended) Fail("the probe failed under valgrind:\n" + log);
    return dumps;
}

// The last dump of each name stands: those before it warmed up.
class Counts {
  public:
    explicit Counts(const std::vector<Dump>& dumps) {
        for (const Dump& dump : dumps) {
            std::istringstream name(dump.name);
            std::string phase;
            int consumers = 0, events = 0;
            Cost cost{static_cast<double>(dump.SelfOf(BENCH_COUNTED)),
                      static_cast<double>(dump.total), 0};
            if (!(name >> phase >> consumers >> events >> cost.allocations))
                Fail("callgrind's file has an unknown dump: " + dump.name);
            costs_[{phase, consumers, events}] = cost;
        }
    }

    // Per event; what a phase without events costs is taken off.
    Cost PerEvent(const std::string& phase, int consumers) const {
        return 1.0 / kEvents * (At(phase, consumers, kEvents) - At(phase, consumers, 0));
    }
    Cost PerDelivered() const {
        return 1.0 / (64 - 8) * (PerEvent("dispatch", 64) - PerEvent("dispatch", 8));
    }
    Cost PerPushed() const {
        return PerEvent("push", 8) + PerEvent("dispatch", 8) - 8 * PerDelivered();
    }

  private:
    Cost At(const std::string& phase, int consumers, int events) const {
        const auto cost = costs_.find({phase, consumers, events});
        if (cost == costs_.end()) Fail("callgrind's file lacks a dump of " + phase);
        return cost->second;
    }

    std::map<std::tuple<std::string, int, int>, Cost> costs_;
};

struct Row {
    std::string name;
    Cost cost;
};

std::vector<Row> RowsOf(const Counts& counts) {
    std::vector<Row> rows;
    for (const int consumers : kConsumers)
        for (const char* phase : {"push", "dispatch"})
            rows.push_back({std::string(phase) + "_" + std::to_string(consumers),
                            counts.PerEvent(phase, consumers)});
    rows.push_back({"pushed", counts.PerPushed()});
    rows.push_back({"delivered", counts.PerDelivered()});
    return rows;
}

void Print(const std::vector<Row>& rows) {
    printf("%-14s %12s %14s %12s\n", "per event", "in hal/", "with callees", "allocations");
    for (const Row& row : rows)
        printf("%-14s %12.1f %14.1f %12.3f\n", row.name.c_str(), row.cost.hal, row.cost.all,
               row.cost.allocations);
}

// What each function of the hub costs per event at 64 consumers, the dearest first.
void PrintFunctions(const std::vector<Dump>& dumps) {
    for (const char* phase : {"push 64 64 ", "dispatch 64 64 "}) {
        std::multimap<uint64_t, std::string, std::greater<>> functions;
        for (const Dump& dump : dumps) {
            const auto own = dump.self.find(BENCH_COUNTED);
            if (dump.name.rfind(phase, 0) != 0 || own == dump.self.end()) continue;
            functions.clear();
            for (const auto& [function, cost] : own->second)
                functions.emplace(cost, function);
        }
        printf("\n%s\n", phase);
        for (const auto& [cost, function] : functions)
            printf("%12.1f  %s\n", static_cast<double>(cost) / kEvents, function.c_str());
    }
}

void WriteJson(const std::string& path, const std::vector<Row>& rows) {
    nlohmann::ordered_json json;
    for (const Row& row : rows)
        json["per_event"][row.name] = {{"hal_instructions", row.cost.hal},
                                       {"all_instructions", row.cost.all},
                                       {"allocations", row.cost.allocations}};
    std::ofstream file(path);
    file << json.dump(2) << '\n';
    if (!file.flush()) Fail("cannot write " + path);
}

// The figures that are held, by name.
std::map<std::string, double> Held(const Counts& counts) {
    const Cost pushed = counts.PerPushed(), delivered = counts.PerDelivered();
    return {{"instructions_per_pushed", pushed.hal},
            {"instructions_per_delivered", delivered.hal},
            {"allocations_per_pushed", pushed.allocations},
            {"allocations_per_delivered", delivered.allocations}};
}

void Update(const std::string& path, const std::map<std::string, double>& held) {
    std::ofstream file(path);
    file << "# Inside hal/, Debian 12's GCC, release, x86-64. Written by event_path_counts "
            "--update.\n";
    for (const auto& [name, figure] : held)
        file << name << ' ' << std::round(figure * 1000) / 1000 << '\n';
    if (!file.flush()) Fail("cannot write " + path);
}

// False if a figure is more than the slack away from the table's, or is not in both.
bool Check(const std::string& path, std::map<std::string, double> held) {
    std::ifstream file(path);
    bool holds = static_cast<bool>(file);
    if (!holds) fprintf(stderr, "%s: cannot be read\n", path.c_str());
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream words(line);
        std::string name;
        double expected = 0;
        const auto figure = words >> name >> expected ? held.find(name) : held.end();
        if (figure == held.end()) Fail(path + ": not understood: " + line);
        // The table has three decimals.
        if (std::abs(figure->second - expected) > kSlack * expected + 0.001) {
            fprintf(stderr, "%s: %g, the table has %g and allows 10 %% either way\n", name.c_str(),
                    figure->second, expected);
            holds = false;
        }
        held.erase(figure);
    }
    for (const auto& [name, figure] : held)
        fprintf(stderr, "%s: %g, not in the table\n", name.c_str(), figure);
    holds = holds && held.empty();
    if (!holds)
        fprintf(stderr, "if this is meant: event_path_counts --update %s, in release\n",
                path.c_str());
    return holds;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    CLI::App app("What an event costs inside the hub's own code, counted under callgrind");
    std::string check, update, json;
    bool functions = false;
    app.add_option("--check", check, "Fail if a figure is off the table's by more than 10 %");
    app.add_option("--update", update, "Write the table");
    app.add_option("--json", json, "Write all figures");
    app.add_flag("--functions", functions, "Also print what each function of the hub costs");
    CLI11_PARSE(app, argc, argv);

    const std::vector<bench::Dump> dumps = bench::Collect();
    const bench::Counts counts(dumps);
    const std::vector<bench::Row> rows = bench::RowsOf(counts);
    bench::Print(rows);
    if (functions) bench::PrintFunctions(dumps);
    if (!json.empty()) bench::WriteJson(json, rows);
    if (!update.empty()) bench::Update(update, bench::Held(counts));
    return check.empty() || bench::Check(check, bench::Held(counts)) ? 0 : 1;
}
