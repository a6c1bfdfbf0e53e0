// libFuzzer entry point; QX_FUZZ_TARGET names the target at compile time.
#include "FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    return QX_FUZZ_TARGET(pData, nSize);
}
