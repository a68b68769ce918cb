// What a frame that the agent sent must look like, judged apart from the agent's own readers.
#pragma once

#include "fuzz/case.h"

// `sent` is `received` as it was, or rebuilt by the rules of the protocol: octets outside of the option or tag are
// untouched, lengths and checksums are right, the identity parses. Calls fuzz_finding otherwise.
void fuzz_check_sent(uint8_t protocol, const fuzz_case& input, const octets& received, const octets& sent);
