// A DHCPv6 frame, its line and the agent's settings, all the way through the agent.
#include "fuzz/case.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { return fuzz_frame(LINE_ID_DHCPV6, data, size); }
