// libFuzzer target: chunk sequences with arbitrary chunk numbers against an engine
// with a request in flight, and the same chunks through HytorcHcpFrame::extractFrames.
#include "hcp_fuzz_driver.h"

// Qt is built without frame pointers: the fast unwinder that records where each block
// was allocated reads garbage past the first Qt frame, and AddressSanitizer's store of
// allocation stacks then grows without end and slows every allocation down over a long
// run. Keep allocation stacks short (ASAN_OPTIONS=malloc_context_size=30 to see more
// when replaying a crash).
extern "C" const char* __asan_default_options()
{
    return "malloc_context_size=2";
}

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
