// Any bytes as a source file: the front end must refuse or accept them, and what it accepts must
// come back the same from its own normal form and be something to generate code from.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "../tests/map_files.h"
#include "emit/ndk_emitter.h"
#include "front_end.h"

namespace {

// The input, and files that it can import.
host::aidl::MapFiles FilesWith(const std::string& text) {
    return {{"p/T.aidl", text},
            {"./p/T.aidl", text},
            {"./p/Q.aidl", "package p; @VintfStability parcelable Q { T[] t; const int X = 1; }"},
            {"./p/E.aidl", "package p; @Backing(type=\"int\") enum E { A, B = T.X }"}};
}

void Fail(const char* what, const std::string& detail) {
    std::fprintf(stderr, "%s\n%s\n", what, detail.c_str());
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto files = FilesWith({reinterpret_cast<const char*>(data), size});
    const auto program = host::aidl::RunFrontEnd(&files, {"."}, {"p/T.aidl"}, false);
    (void)program->diagnostics().Render();
    if (!program->diagnostics().ok()) return 0;
    for (const auto& document : program->documents())
        host::aidl::EmitNdk(*document, {});
    const auto dumps = host::aidl::DumpPrimary(*program);
    const auto dumped = FilesWith(dumps.at("p/T.aidl"));
    const auto again = host::aidl::RunFrontEnd(&dumped, {"."}, {"p/T.aidl"}, false);
    if (!again->diagnostics().ok()) {
        Fail("the normal form is refused", again->diagnostics().Render());
    }
    if (host::aidl::DumpPrimary(*again) != dumps) {
        Fail("the normal form changes", dumps.at("p/T.aidl"));
    }
    return 0;
}
