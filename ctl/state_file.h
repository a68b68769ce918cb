// The wanted state of an agent, as a TOML file describes it. Unchanging once it is read.
#pragma once

#include "ctl/settings.h"

#include <string>
#include <vector>

struct wanted_setting {
  const setting_row* row;
  setting_value value;
};

struct wanted_pin {
  char letter;
  std::string text;
};

struct wanted_profile {
  uint32_t number;
  uint8_t kind;              // 0 Circuit-ID, 1 Remote-ID
  uint32_t circuit_template; // 0 the text, 1 CTC, 2 CNC
  std::string text;          // never empty when it is to be there
  bool absent;
};

struct wanted_instance {
  uint8_t oltid;
  std::vector<wanted_setting> settings; // in the order of the table
  std::vector<wanted_pin> pins;
  std::vector<wanted_profile> profiles;
};

struct wanted_state {
  std::vector<wanted_setting> agent;
  std::string releases; // letters
  std::vector<wanted_instance> instances;
  std::vector<std::string> warnings; // with file and line
};

constexpr uint32_t PROFILE_MIN = 1;
constexpr const char* PROFILE_KINDS[] = {"circuit-id", "remote-id"};
constexpr const char* PROFILE_TEMPLATES[] = {"text", "ctc", "cnc"};

// Checks a profile and gives its text as it is sent. Throws ctl_failure.
std::string profile_text(uint8_t kind, uint32_t circuit_template, const std::string& given);
// A letter of templates; `what` stands before the fault. Throws ctl_failure.
char letter_parse(const std::string& what, const std::string& text);

// Reads and checks the whole file. Throws ctl_failure (STATUS_STATE_FILE) that names all faults, one behind the other,
// with file and line.
wanted_state state_read(const std::string& path);
