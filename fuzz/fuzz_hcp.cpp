// libFuzzer target: chunk sequences with arbitrary chunk numbers against an engine
// with a request in flight, and the same chunks through HytorcHcpFrame::extractFrames.
#include "hcp_fuzz_driver.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    hcpfuzz::init(true);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    hcpfuzz::run(data, size);
    return 0;
}
