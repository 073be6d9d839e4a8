// What every fuzz target shares: a check that aborts with its place, so that libFuzzer
// keeps the input, and a replay of kept inputs when built without libFuzzer.
#ifndef FUZZ_CHECK_H
#define FUZZ_CHECK_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(cond)                                                                                \
    do {                                                                                                \
        if (!(cond)) {                                                                                  \
            std::fprintf(stderr, "fuzz check failed at %s:%d: %s\n", __FILE__, __LINE__, #cond);        \
            std::abort();                                                                               \
        }                                                                                               \
    } while (0)

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
// Call at the end of every input: there is no event loop, and the objects Qt deletes
// later and the pending single-shot timers would pile up for ever.
void fuzzEndOfInput();
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

#endif // FUZZ_CHECK_H
