// Any bytes are a manifest or a clear error, and whatever is declared is a service's name.

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "manifest.h"
#include "service_name.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    host::Manifest manifest;
    std::string error;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const bool read = manifest.AddText("fragment.xml", text, &error);
    if (read != error.empty()) abort();
    for (const auto& [name, place] : manifest.instances()) {
        if (!host::IsValidServiceName(name) || place.rfind("fragment.xml:", 0) != 0) abort();
    }
    // The same fragment once more declares nothing new.
    std::string twice;
    if (read && !manifest.instances().empty() && manifest.AddText("again.xml", text, &twice)) {
        abort();
    }
    return 0;
}
