// Start-up of the agent's shared objects; the calls of the host are in include/line_id.h.
#pragma once

#include <cstdint>

// Pool semaphore, channel semaphores, packet pool, command areas and message queue, in this order; each step's failure
// has its code (-92, -45, -19, -1) and undoes nothing. What a former start made is kept and cleaned.
int32_t line_id_init_sys_resource(const uint32_t* key);
