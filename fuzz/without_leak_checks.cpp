// For targets whose inputs leave something reachable behind, as each client of the hub in its own
// process does: the record of its refused death link. After such an input the fuzzer would search
// all memory for leaks, which takes far longer than the input. The replay of the corpus searches
// once, at its end.

#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static char option[] = "-detect_leaks=0";
    static std::vector<char*> arguments(*argv, *argv + *argc);
    arguments.push_back(option);
    *argc = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    *argv = arguments.data();
    return 0;
}
