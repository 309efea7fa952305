// Any bytes as a source file: the front end must refuse or accept them, and what it accepts must
// come back the same from its own normal form and be something to generate code from.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "emit/ndk_emitter.h"
#include "front_end.h"

namespace {

// One file that can be imported beside the one made of the input.
class FuzzFiles : public host::aidl::FileProvider {
  public:
    explicit FuzzFiles(std::string text) : text_(std::move(text)) {}

    bool Read(const std::string& path, std::string* text) const override {
        if (path == "p/T.aidl" || path == "./p/T.aidl") {
            *text = text_;
        } else if (path == "./p/Q.aidl") {
            *text = "package p; @VintfStability parcelable Q { T[] t; const int X = 1; }";
        } else if (path == "./p/E.aidl") {
            *text = "package p; @Backing(type=\"int\") enum E { A, B = T.X }";
        } else {
            return false;
        }
        return true;
    }

  private:
    const std::string text_;
};

void Fail(const char* what, const std::string& detail) {
    std::fprintf(stderr, "%s\n%s\n", what, detail.c_str());
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const FuzzFiles files(std::string(reinterpret_cast<const char*>(data), size));
    const auto program = host::aidl::RunFrontEnd(&files, {"."}, {"p/T.aidl"}, false);
    (void)program->diagnostics().Render();
    if (!program->diagnostics().ok()) return 0;
    for (const auto& document : program->documents())
        host::aidl::EmitNdk(*document, {});
    const auto dumps = host::aidl::DumpPrimary(*program);
    const FuzzFiles dumped(dumps.at("p/T.aidl"));
    const auto again = host::aidl::RunFrontEnd(&dumped, {"."}, {"p/T.aidl"}, false);
    if (!again->diagnostics().ok()) {
        Fail("the normal form is refused", again->diagnostics().Render());
    }
    if (host::aidl::DumpPrimary(*again) != dumps) {
        Fail("the normal form changes", dumps.at("p/T.aidl"));
    }
    return 0;
}
