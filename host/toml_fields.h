// Fields of a TOML table, read by name, type and range. Faults are gathered with the line they stand on, so that a user
// sees all of them at once; a field that is refused leaves its target as it was.
#pragma once

#include "host/octets.h"
#include "host/toml_parser.h"

#include <initializer_list>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>

class toml_faults {
public:
  explicit toml_faults(std::string path) : path_(std::move(path)) {}
  void add(const toml::source_region& where, const std::string& text);
  void raise() const; // throws host_failure (EXIT_LINES) when there are any

private:
  std::string path_;
  std::multimap<uint32_t, std::string> faults_; // by line
};

struct toml_choice {
  const char* name;
  uint8_t value;
};

// One table. `name` stands before the keys in messages.
class toml_fields {
public:
  toml_fields(const toml::table& table, std::string name, toml_faults& faults)
      : table_(table), name_(std::move(name)), faults_(faults) {}

  bool has(const char* key) const { return table_.contains(key); }

  template <typename number> bool read(const char* key, number& target, int64_t low, int64_t high) {
    const std::optional<int64_t> value = integer(key, low, high);
    if (value) target = static_cast<number>(*value);
    return value.has_value();
  }
  template <typename number> bool read(const char* key, number& target) {
    return read(key, target, 0, std::numeric_limits<number>::max());
  }
  template <typename number> bool read(const char* key, std::optional<number>& target, int64_t low, int64_t high) {
    number value = {};
    if (!read(key, value, low, high)) return false;
    target = value;
    return true;
  }

  // true and false, as these two octets.
  void read_switch(const char* key, uint8_t& target, uint8_t on = 1, uint8_t off = 0);
  void read_choice(const char* key, uint8_t& target, std::initializer_list<toml_choice> choices);
  bool read_text(const char* key, std::string& target, size_t max_len);
  bool read_text(const char* key, std::optional<std::string>& target, size_t max_len);
  bool read_mac(const char* key, mac_address& target);
  bool read_ipv4(const char* key, std::optional<uint32_t>& target);
  // `take` gets each text of a list and says what is wrong with it, or nothing.
  template <typename function> void read_texts(const char* key, const char* expected, function take);
  template <typename function> void read_numbers(const char* key, int64_t low, int64_t high, function take);
  // `take` gets each key and text of a table.
  template <typename function> void read_table(const char* key, const char* expected, function take);

  // `take` gets the fields of a [section], or of each of the [[sections]], and calls their finish().
  template <typename function> void read_section(const char* key, function take);
  template <typename function> void read_sections(const char* key, function take);

  // A fault at a key, or at the table when it is not there.
  void fault(const char* key, const std::string& text);
  // Every key that nobody asked for is a fault.
  void finish();

private:
  const toml::node* take(const char* key);
  std::string full_name(const std::string& key) const;
  void expected(const toml::node& node, const std::string& key, const std::string& what);
  std::optional<int64_t> integer(const char* key, int64_t low, int64_t high);

  const toml::table& table_;
  std::string name_;
  toml_faults& faults_;
  std::set<std::string, std::less<>> asked_;
};

// "00:00:5e:00:53:01", in either case; nothing when it is no MAC address.
std::optional<mac_address> parse_mac(const std::string& text);

template <typename function>
void toml_fields::read_texts(const char* key, const char* expected_text, function take_text) {
  const toml::node* node = take(key);
  if (node == nullptr) return;
  if (!node->is_array()) return expected(*node, key, expected_text);
  for (const toml::node& entry : *node->as_array()) {
    const auto text = entry.value_exact<std::string>();
    if (!text || !take_text(*text)) expected(entry, key, expected_text);
  }
}

template <typename function>
void toml_fields::read_numbers(const char* key, int64_t low, int64_t high, function take_number) {
  const toml::node* node = take(key);
  if (node == nullptr) return;
  const std::string what = "a list of numbers from " + std::to_string(low) + " to " + std::to_string(high);
  if (!node->is_array()) return expected(*node, key, what);
  for (const toml::node& entry : *node->as_array()) {
    const auto number = entry.value_exact<int64_t>();
    if (!number || *number < low || *number > high || !take_number(*number)) expected(entry, key, what);
  }
}

template <typename function>
void toml_fields::read_table(const char* key, const char* expected_text, function take_pair) {
  const toml::node* node = take(key);
  if (node == nullptr) return;
  if (!node->is_table()) return expected(*node, key, expected_text);
  for (const auto& pair : *node->as_table()) {
    const toml::node& entry = pair.second;
    const auto text = entry.value_exact<std::string>();
    if (!text || !take_pair(std::string(pair.first), *text)) expected(entry, key, expected_text);
  }
}

template <typename function> void toml_fields::read_section(const char* key, function take_fields) {
  const toml::node* node = take(key);
  if (node == nullptr) return;
  if (!node->is_table()) return expected(*node, key, "a section in single brackets");
  toml_fields fields(*node->as_table(), key, faults_);
  take_fields(fields);
  fields.finish();
}

template <typename function> void toml_fields::read_sections(const char* key, function take_fields) {
  const toml::node* node = take(key);
  if (node == nullptr) return;
  if (!node->is_array()) return expected(*node, key, "sections in double brackets");
  for (const toml::node& entry : *node->as_array()) {
    if (!entry.is_table()) {
      expected(entry, key, "sections in double brackets");
      continue;
    }
    toml_fields fields(*entry.as_table(), key, faults_);
    take_fields(fields);
    fields.finish();
  }
}
