// Reads what callgrind writes with --combine-dumps=yes --compress-strings=no --compress-pos=no:
// instructions by the object file whose code they are.

#pragma once

#include <cstdint>
#include <istream>
#include <map>
#include <string>
#include <vector>

namespace bench {

// One dump that the program asked for.
struct Dump {
    std::string name;  // what the program called it
    uint64_t total = 0;
    // Function -> instructions of its own, by the base name of the object file.
    std::map<std::string, std::map<std::string, uint64_t>> self;

    uint64_t SelfOf(const std::string& object) const;
};

// In the order of the file. The one that callgrind adds at the end of the program is left out.
std::vector<Dump> ReadDumps(std::istream& file);

}  // namespace bench
