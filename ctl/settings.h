// The settings that an operator knows by name: one table for set, get, apply, completion and the page of the program.
#pragma once

#include "ctl/values.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>

enum setting_scope : uint8_t {
  SCOPE_INSTANCE, // one value for each configuration instance
  SCOPE_AGENT,    // one value for the whole agent
};

struct setting_row {
  const char* name;
  setting_scope scope;
  value_rule rule;
  int32_t (*read)(uint8_t oltid, setting_value& value);        // null: the agent does not tell it
  int32_t (*write)(uint8_t oltid, const setting_value& value); // null: set through the circuit-ID block
  const char* help;
};

// In the order in which they are set: what changes others comes before them.
std::span<const setting_row> all_settings();
// Throws ctl_failure (STATUS_USAGE) for a name that no setting has.
const setting_row& setting_find(const std::string& name);
const setting_row* setting_try(const std::string& name);
