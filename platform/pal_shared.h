// Named records in shared memory.
#pragma once

#include <cstdint>

// Brings a record into its first state unless it is in one already; a zeroed record is new, or its creator died before
// it was ready. Called when this process maps the record, with other processes kept out. False: it cannot be used.
using pal_record_init = bool (*)(void* record, const void* arg);

// The record "<prefix>.<suffix>" of exactly `size` octets, created (zeroed, mode 0600) when it is not there; null when
// it has another size or owner, or on failure. `init` may be null. The record stays mapped for the life of the process,
// and the same suffix gives the same address. Other processes can write it at any time: the caller checks what it
// reads. Any thread.
void* pal_shared_attach(const char* suffix, uint32_t size, pal_record_init init, const void* arg);
