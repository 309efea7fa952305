// Any sequence of operations that the input spells does to the hub what it does to the model.

#include <android-base/logging.h>
#include <android/log.h>
#include <stddef.h>
#include <stdint.h>

#include "hub_operations.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    __android_log_set_logger([](const __android_log_message*) {});
    const std::string difference = velmora_test::FirstDifference({data, data + size});
    CHECK(difference.empty()) << difference;
    return 0;
}
