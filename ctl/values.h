// Values of settings: how they are read, from a command line or a state file, and how they are shown.
#pragma once

#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

using mac_address = std::array<uint8_t, 6>;
using onu_types = std::vector<uint16_t>;
// Switches, choices, numbers and IPv4 addresses (host order) are numbers.
using setting_value = std::variant<uint32_t, std::string, mac_address, onu_types>;

enum value_kind : uint8_t {
  VALUE_SWITCH,   // on, off
  VALUE_FORMAT,   // custom, ctc, cnc
  VALUE_NUMBER,   // of a range
  VALUE_TEXT,     // of at most a length
  VALUE_TEMPLATE, // with "%_" for a space
  VALUE_ADDRESS,  // IPv4
  VALUE_MAC,
  VALUE_ONU_TYPES, // numbers with commas between them
};

struct value_rule {
  value_kind kind;
  uint32_t low;  // of a number
  uint32_t high; // of a number; length of a text
};

constexpr const char* FORMAT_NAMES[] = {"custom", "ctc", "cnc"};

// Throws ctl_failure (STATUS_REFUSED, for a template STATUS_TEMPLATE) that says what was expected; `what` stands before
// it.
setting_value value_parse(const value_rule& rule, const std::string& what, const std::string& text);
uint32_t number_parse(const std::string& what, const std::string& text, uint32_t low, uint32_t high);
mac_address mac_parse(const std::string& what, const std::string& text);

// For people: "on", "192.0.2.1", a template with "%_" for its spaces; octets that are no text as \xNN.
std::string value_text(const value_rule& rule, const setting_value& value);
// For programs: true, 7, "192.0.2.1", a template as it is stored.
nlohmann::ordered_json value_json(const value_rule& rule, const setting_value& value);

// What a value may look like, for help and messages.
std::string value_form(const value_rule& rule);
// The words that a value can be, for completion; empty when it is free.
std::vector<std::string> value_words(const value_rule& rule);
