// Bringing an agent to a wanted state.
#pragma once

#include "ctl/state_file.h"

// Compares what can be read and sends what differs; sends what cannot be read. A line for each of them. With `dry_run`
// nothing is sent. Throws ctl_failure; what was sent before stays.
void apply_state(const wanted_state& state, bool dry_run);
