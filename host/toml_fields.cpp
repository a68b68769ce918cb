// Reading TOML fields.
#include "host/toml_fields.h"

#include "host/failure.h"

#include <arpa/inet.h>
#include <charconv>
#include <sstream>

namespace {

constexpr size_t MAX_SHOWN = 40;

// A value as the user wrote it, shortened.
std::string shown(const toml::node& node) {
  if (node.is_table()) return "a table";
  if (node.is_array()) return "a list";
  std::ostringstream out;
  node.visit([&out](const auto& value) { out << value; });
  std::string text = out.str();
  if (text.size() > MAX_SHOWN) text = text.substr(0, MAX_SHOWN) + "...";
  return text;
}

} // namespace

void toml_faults::add(const toml::source_region& where, const std::string& text) {
  faults_.emplace(where.begin.line, path_ + ":" + std::to_string(where.begin.line) + ": " + text);
}

void toml_faults::raise() const {
  if (faults_.empty()) return;
  std::string all;
  for (const auto& [line, fault] : faults_) all += (all.empty() ? "" : "\n") + fault;
  throw host_failure(EXIT_LINES, all);
}

const toml::node* toml_fields::take(const char* key) {
  asked_.insert(key);
  return table_.get(key);
}

std::string toml_fields::full_name(const std::string& key) const { return name_.empty() ? key : name_ + "." + key; }

void toml_fields::expected(const toml::node& node, const std::string& key, const std::string& what) {
  faults_.add(node.source(), full_name(key) + ": expected " + what + ", found " + shown(node));
}

void toml_fields::fault(const char* key, const std::string& text) {
  const toml::node* node = table_.get(key);
  faults_.add(node != nullptr ? node->source() : table_.source(), full_name(key) + ": " + text);
}

std::optional<int64_t> toml_fields::integer(const char* key, int64_t low, int64_t high) {
  const toml::node* node = take(key);
  if (node == nullptr) return std::nullopt;
  const auto value = node->value_exact<int64_t>();
  if (value && *value >= low && *value <= high) return value;
  expected(*node, key, "a number from " + std::to_string(low) + " to " + std::to_string(high));
  return std::nullopt;
}

void toml_fields::read_switch(const char* key, uint8_t& target, uint8_t on, uint8_t off) {
  const toml::node* node = take(key);
  if (node == nullptr) return;
  if (const auto value = node->value_exact<bool>()) {
    target = *value ? on : off;
  } else {
    expected(*node, key, "true or false");
  }
}

void toml_fields::read_choice(const char* key, uint8_t& target, std::initializer_list<toml_choice> choices) {
  const toml::node* node = take(key);
  if (node == nullptr) return;
  const auto value = node->value_exact<std::string>();
  std::string names;
  for (const toml_choice& choice : choices) {
    if (value && *value == choice.name) {
      target = choice.value;
      return;
    }
    names += std::string(names.empty() ? "" : ", ") + "\"" + choice.name + "\"";
  }
  expected(*node, key, "one of " + names);
}

bool toml_fields::read_text(const char* key, std::string& target, size_t max_len) {
  const toml::node* node = take(key);
  if (node == nullptr) return false;
  auto value = node->value_exact<std::string>();
  if (!value || value->size() > max_len || value->find('\0') != std::string::npos) {
    expected(*node, key, "a text of at most " + std::to_string(max_len) + " characters");
    return false;
  }
  target = std::move(*value);
  return true;
}

bool toml_fields::read_text(const char* key, std::optional<std::string>& target, size_t max_len) {
  std::string text;
  if (!read_text(key, text, max_len)) return false;
  target = std::move(text);
  return true;
}

bool toml_fields::read_mac(const char* key, mac_address& target) {
  const toml::node* node = take(key);
  if (node == nullptr) return false;
  const auto text = node->value_exact<std::string>();
  const auto mac = text ? parse_mac(*text) : std::nullopt;
  if (!mac) {
    expected(*node, key, "a MAC address such as \"00:00:5e:00:53:01\"");
    return false;
  }
  target = *mac;
  return true;
}

bool toml_fields::read_ipv4(const char* key, std::optional<uint32_t>& target) {
  const toml::node* node = take(key);
  if (node == nullptr) return false;
  const auto text = node->value_exact<std::string>();
  in_addr address = {};
  if (!text || inet_pton(AF_INET, text->c_str(), &address) != 1) {
    expected(*node, key, "an IPv4 address such as \"192.0.2.1\"");
    return false;
  }
  target = ntohl(address.s_addr);
  return true;
}

void toml_fields::finish() {
  std::string known;
  for (const std::string& key : asked_) known += (known.empty() ? "" : ", ") + key;
  for (const auto& [key, node] : table_) {
    if (asked_.count(key.str()) == 0) {
      faults_.add(key.source(), full_name(std::string(key.str())) + ": unknown key, expected one of " + known);
    }
  }
}

std::optional<mac_address> parse_mac(const std::string& text) {
  constexpr size_t MAC_TEXT_LEN = 17;
  mac_address mac = {};
  if (text.size() != MAC_TEXT_LEN) return std::nullopt;
  for (size_t i = 0; i < mac.size(); ++i) {
    const char* digits = text.data() + i * 3;
    const auto [end, error] = std::from_chars(digits, digits + 2, mac[i], 16);
    const bool separated = i + 1 == mac.size() || *end == ':';
    if (error != std::errc() || end != digits + 2 || !separated) return std::nullopt;
  }
  return mac;
}
