// One fuzz input run against the HCP link: shared by the libFuzzer target fuzz_hcp and
// by the Qt test that replays the inputs kept under tests/hcp/regressions/.
#ifndef HCP_FUZZ_DRIVER_H
#define HCP_FUZZ_DRIVER_H

#include <cstddef>
#include <cstdint>

namespace hcpfuzz {

// Creates the QCoreApplication if there is none yet (timers need one). Call once.
void init(bool quiet);

// Runs one input; aborts with a message on stderr when an invariant breaks.
//
// Input layout: byte 0 is the set-up:
//   bits 0-1  state the engine is driven into before the records: 0 idle (no request),
//             1 header sent, 2 request sent, 3 awaiting the reply (by sendRequest, the
//             header slot called at once, and ACK frames);
//   bit 2     reset the engine from the slots of sigDataReady and sigError, as commands do;
//   bit 3     answer the header and the request with an ACK from inside sigWriteRequest;
//   bit 4     feed the next chunk record from inside sigWriteRequest (a synchronous peer).
// Then records, each opened by one byte op:
//   0x00-0xEF chunk: number (next byte, signed: -128..127), then op bytes of data;
//   0xF0      reset();
//   0xF1      the retry timer expires (onRetryTimeout);
//   0xF2      sendRequest (text from the next byte) and the header at once;
//   0xF3      a chunk of 65530 + (next byte) bytes filled with the byte after, number after
//             (the first one of an input only; later ones do nothing);
//   0xF4      chunk: number, then a 16-bit big-endian length, then that many data bytes;
//   0xF5-0xFF nothing.
// Without bits 2-4, the engine is checked step by step against a model written
// straight from the engine rules on top of HytorcHcpFrame::extractFrames/parseFrame; the chunk
// data are also run through extractFrames alone and checked against a literal reading
// of the extraction.
void run(const uint8_t* data, size_t size);

} // namespace hcpfuzz

#endif // HCP_FUZZ_DRIVER_H
