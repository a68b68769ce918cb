// The circuit-ID block: identity and enables of an instance in one record, and the only way to the host name.
#pragma once

#include "ctl/settings.h"

#include <string>
#include <utility>
#include <vector>

using named_values = std::vector<std::pair<std::string, setting_value>>;

// Names of the settings that the block carries.
std::vector<std::string> block_names();

// Fetches the block, changes what is named and sends it: 0 or the failure's code. The host name cannot be fetched: it
// becomes empty when it is not named.
int32_t block_change(uint8_t oltid, const named_values& changes);
// The block as it can be read: all but the host name. 0 or the failure's code.
int32_t block_read(uint8_t oltid, named_values& values);
