// Between the files that read a line map.
#pragma once

#include "host/line_map.h"
#include "host/toml_fields.h"

#include <vector>

constexpr size_t MAX_TEXT = LINE_ID_TEXT_SIZE - 1; // characters of a letter's text

// What [agent] says of the settings that all instances share: a field of the start-up table and its value.
struct shared_setting {
  uint8_t line_id_ex_cfg_table::*field;
  uint8_t value;
};

void read_device(toml_fields& fields, device_facts& device);
void read_agent(toml_fields& fields, agent_settings& agent, std::vector<shared_setting>& shared);
void read_white_list(toml_fields& fields, line_id_white_list& list);
void read_instance(toml_fields& fields, line_map& map);
void read_profile(toml_fields& fields, line_map& map);
void read_line(toml_fields& fields, line_map& map);

bool has_instance(const line_map& map, uint8_t id);

// A text into a field that the agent takes NUL-padded, or with its terminator where the text is shorter than the field.
template <size_t size> void copy_text(const std::string& text, char (&field)[size]) {
  std::fill(std::begin(field), std::end(field), '\0');
  std::copy_n(text.begin(), std::min(text.size(), size), field);
}

// The warnings of settings that defeat each other.
std::vector<std::string> find_defeated_settings(const line_map& map);
