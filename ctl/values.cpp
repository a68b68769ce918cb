// Reading and showing values.
#include "ctl/values.h"

#include "ctl/failure.h"
#include "ctl/template_text.h"
#include "include/line_id.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstdio>

namespace {

constexpr size_t FORMATS = std::size(FORMAT_NAMES);

[[noreturn]] void refuse(const std::string& what, const std::string& expected, const std::string& text) {
  throw ctl_failure(STATUS_REFUSED, what + ": expected " + expected + ", found \"" + printable(text) + "\"");
}

bool number_of(std::string_view text, uint64_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

uint32_t address_parse(const std::string& what, const std::string& text) {
  in_addr address = {};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) refuse(what, "an IPv4 address such as 192.0.2.1", text);
  return ntohl(address.s_addr);
}

onu_types onu_types_parse(const value_rule& rule, const std::string& what, const std::string& text) {
  onu_types types;
  for (size_t at = 0; at < text.size();) {
    const size_t comma = std::min(text.find(',', at), text.size());
    uint64_t type = 0;
    if (!number_of(std::string_view(text).substr(at, comma - at), type) || type > UINT16_MAX ||
        comma + 1 == text.size()) {
      refuse(what, value_form(rule), text);
    }
    types.push_back(static_cast<uint16_t>(type));
    at = comma + 1;
  }
  if (types.size() > LINE_ID_WHITE_LIST_TYPES) refuse(what, value_form(rule), text);
  return types;
}

std::string text_parse(const value_rule& rule, const std::string& what, const std::string& text) {
  if (text.find('\0') != std::string::npos) refuse(what, "a text without octets of value 0", text);
  if (text.size() > rule.high) {
    throw ctl_failure(STATUS_REFUSED,
                      what + ": expected " + value_form(rule) + ", found " + std::to_string(text.size()) + " octets");
  }
  return text;
}

std::string mac_text(const mac_address& mac) {
  char text[18];
  std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
  return text;
}

std::string address_text(uint32_t address) {
  const in_addr network = {htonl(address)};
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &network, text, sizeof(text));
  return text;
}

std::string onu_types_text(const onu_types& types) {
  std::string text;
  for (const uint16_t type : types) text += (text.empty() ? "" : ",") + std::to_string(type);
  return text;
}

} // namespace

uint32_t number_parse(const std::string& what, const std::string& text, uint32_t low, uint32_t high) {
  uint64_t number = 0;
  if (number_of(text, number) && number >= low && number <= high) return static_cast<uint32_t>(number);
  refuse(what, value_form({VALUE_NUMBER, low, high}), text);
}

mac_address mac_parse(const std::string& what, const std::string& text) {
  mac_address mac = {};
  bool good = text.size() == 17;
  for (size_t i = 0; i < mac.size() && good; ++i) {
    const char* at = text.data() + i * 3;
    const auto [end, error] = std::from_chars(at, at + 2, mac[i], 16);
    good = error == std::errc() && end == at + 2 && (i == 5 || at[2] == ':' || at[2] == '-');
  }
  if (!good) refuse(what, value_form({VALUE_MAC, 0, 0}), text);
  return mac;
}

setting_value value_parse(const value_rule& rule, const std::string& what, const std::string& text) {
  switch (rule.kind) {
  case VALUE_SWITCH:
    if (text != "on" && text != "off") refuse(what, value_form(rule), text);
    return uint32_t{text == "on" ? 1U : 0U};
  case VALUE_FORMAT:
    for (uint32_t i = 0; i < FORMATS; ++i) {
      if (text == FORMAT_NAMES[i]) return i;
    }
    refuse(what, value_form(rule), text);
  case VALUE_NUMBER: return number_parse(what, text, rule.low, rule.high);
  case VALUE_TEXT: return text_parse(rule, what, text);
  case VALUE_TEMPLATE: return template_stored(what, text);
  case VALUE_ADDRESS: return address_parse(what, text);
  case VALUE_MAC: return mac_parse(what, text);
  case VALUE_ONU_TYPES: return onu_types_parse(rule, what, text);
  }
  return uint32_t{0};
}

std::string value_text(const value_rule& rule, const setting_value& value) {
  if (const auto* mac = std::get_if<mac_address>(&value)) return mac_text(*mac);
  if (const auto* types = std::get_if<onu_types>(&value)) return onu_types_text(*types);
  if (const auto* text = std::get_if<std::string>(&value)) {
    return printable(rule.kind == VALUE_TEMPLATE ? template_alias(*text) : *text);
  }
  const uint32_t number = std::get<uint32_t>(value);
  if (rule.kind == VALUE_SWITCH && number <= 1) return number == 1 ? "on" : "off";
  if (rule.kind == VALUE_SWITCH) return "on (" + std::to_string(number) + ")";
  if (rule.kind == VALUE_FORMAT && number < FORMATS) return FORMAT_NAMES[number];
  if (rule.kind == VALUE_ADDRESS) return address_text(number);
  return std::to_string(number);
}

nlohmann::ordered_json value_json(const value_rule& rule, const setting_value& value) {
  if (const auto* types = std::get_if<onu_types>(&value)) return *types;
  if (const auto* text = std::get_if<std::string>(&value)) return *text;
  if (const auto* number = std::get_if<uint32_t>(&value)) {
    if (rule.kind == VALUE_SWITCH) return *number != 0;
    if (rule.kind == VALUE_NUMBER) return *number;
    if (rule.kind == VALUE_FORMAT && *number >= FORMATS) return *number;
  }
  return value_text(rule, value);
}

std::string value_form(const value_rule& rule) {
  switch (rule.kind) {
  case VALUE_SWITCH: return "on or off";
  case VALUE_FORMAT: return "custom, ctc or cnc";
  case VALUE_NUMBER: return "a number from " + std::to_string(rule.low) + " to " + std::to_string(rule.high);
  case VALUE_TEXT: return "a text of at most " + std::to_string(rule.high) + " octets";
  case VALUE_TEMPLATE: return "a template of at most " + std::to_string(rule.high) + " octets";
  case VALUE_ADDRESS: return "an IPv4 address such as 192.0.2.1";
  case VALUE_MAC: return "a MAC address such as 00:00:5e:00:53:01";
  case VALUE_ONU_TYPES: return "at most 32 ONU types from 0 to 65535 with commas between them";
  }
  return "";
}

std::vector<std::string> value_words(const value_rule& rule) {
  if (rule.kind == VALUE_SWITCH) return {"on", "off"};
  if (rule.kind == VALUE_FORMAT) return {std::begin(FORMAT_NAMES), std::end(FORMAT_NAMES)};
  constexpr uint32_t FEW = 8;
  std::vector<std::string> words;
  if (rule.kind != VALUE_NUMBER || rule.high - rule.low > FEW) return words;
  for (uint32_t number = rule.low; number <= rule.high; ++number) words.push_back(std::to_string(number));
  return words;
}
