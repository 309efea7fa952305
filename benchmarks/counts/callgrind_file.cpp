#include "callgrind_file.h"

#include <cctype>
#include <cstdlib>
#include <utility>

namespace bench {
namespace {

// The rest of a line that begins with `key`; null if it does not.
const char* After(const std::string& line, const char* key) {
    const std::string prefix = key;
    return line.compare(0, prefix.size(), prefix) == 0 ? line.c_str() + prefix.size() : nullptr;
}

class Reader {
  public:
    void Take(const std::string& line) {
        if (After(line, "part: ")) {
            dump_ = nullptr;
        } else if (const char* name = After(line, "desc: Trigger: Client Request: ")) {
            dumps_.push_back({name, 0, {}});
            dump_ = &dumps_.back();
        } else if (const char* object = After(line, "ob=")) {
            object_ = std::string(object).substr(std::string(object).rfind('/') + 1);
        } else if (const char* function = After(line, "fn=")) {
            function_ = function;
        } else if (After(line, "calls=")) {
            skip_ = true;  // the next line is what the callee cost
        } else if (!line.empty() && std::isdigit(static_cast<unsigned char>(line[0]))) {
            TakeCost(line);
        }
    }

    std::vector<Dump> TakeDumps() { return std::move(dumps_); }

  private:
    // "POSITION INSTRUCTIONS"
    void TakeCost(const std::string& line) {
        if (!skip_ && dump_ != nullptr) {
            const uint64_t cost =
                    std::strtoull(line.c_str() + line.find(' ') + 1, nullptr, /*base=*/10);
            dump_->total += cost;
            dump_->self[object_][function_] += cost;
        }
        skip_ = false;
    }

    std::vector<Dump> dumps_;
    Dump* dump_ = nullptr;
    std::string object_, function_;
    bool skip_ = false;
};

}  // namespace

uint64_t Dump::SelfOf(const std::string& object) const {
    uint64_t sum = 0;
    const auto functions = self.find(object);
    if (functions == self.end()) return sum;
    for (const auto& [function, cost] : functions->second)
        sum += cost;
    return sum;
}

std::vector<Dump> ReadDumps(std::istream& file) {
    Reader reader;
    for (std::string line; std::getline(file, line);)
        reader.Take(line);
    return reader.TakeDumps();
}

}  // namespace bench
