// Reading and checking the file of a wanted state.
#include "ctl/state_file.h"

#include "ctl/failure.h"
#include "ctl/template_text.h"
#include "host/toml_parser.h"
#include "include/line_id.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace {

constexpr size_t PIN_LIMIT = LINE_ID_TEXT_SIZE - 1;

// What the whole file has in common: where faults and warnings go.
class state_reader {
public:
  explicit state_reader(std::string path) : path_(std::move(path)) {}

  wanted_state read(const toml::table& file);
  [[noreturn]] void refuse(uint32_t line, std::string_view text) const {
    throw ctl_failure(STATUS_STATE_FILE, place(line) + std::string(text));
  }

private:
  void read_agent(const toml::table& table);
  void read_instance(const toml::table& table);
  void read_instances(const toml::node& node);
  void read_settings(const toml::table& table, setting_scope scope, std::vector<wanted_setting>& wanted);
  void read_releases(const toml::node& node);
  void read_pins(const toml::node& node, std::vector<wanted_pin>& pins);
  void read_profiles(const toml::node& node, std::vector<wanted_profile>& profiles);
  void read_profile(const toml::table& table, std::vector<wanted_profile>& profiles);
  uint32_t number_of(const toml::table& table, const char* key, uint32_t low, uint32_t high);
  template <size_t size> uint8_t choice_of(const toml::table& table, const char* key, const char* const (&names)[size]);
  void check_together(const toml::table& table, const std::vector<wanted_setting>& wanted);
  void warn_templates(const toml::node& node, const std::string& name, const std::string& stored);

  std::string place(uint32_t line) const { return path_ + ":" + (line != 0 ? std::to_string(line) + ":" : "") + " "; }
  void fault(const toml::source_region& where, const std::string& text) {
    faults_.emplace(where.begin.line, place(where.begin.line) + text);
  }
  void fault(const toml::node& node, const std::string& text) { fault(node.source(), text); }
  void warn(const toml::node& node, const std::string& text) {
    state_.warnings.push_back(place(node.source().begin.line) + text);
  }
  // Runs `parse`, whose refusal becomes a fault at the node; true when there was none.
  template <typename function> bool guarded(const toml::node& node, function parse) {
    try {
      parse();
      return true;
    } catch (const ctl_failure& failure) {
      fault(node, failure.what());
      return false;
    }
  }
  const toml::table* table_of(const toml::node& node, const std::string& name);
  void unknown_keys(const toml::table& table, const std::set<std::string>& known);

  std::string path_;
  std::multimap<uint32_t, std::string> faults_; // by line
  wanted_state state_;
};

// A value as the command line would take it; throws when it has another type.
std::string plain_text(const value_rule& rule, const std::string& name, const toml::node& node) {
  const bool is_switch = rule.kind == VALUE_SWITCH;
  const bool is_number = rule.kind == VALUE_NUMBER;
  if (is_switch && node.is_boolean()) return *node.value_exact<bool>() ? "on" : "off";
  if (is_number && node.is_integer()) return std::to_string(*node.value_exact<int64_t>());
  if (!is_switch && !is_number && rule.kind != VALUE_ONU_TYPES && node.is_string()) {
    return *node.value_exact<std::string>();
  }
  if (rule.kind == VALUE_ONU_TYPES && node.is_array()) {
    std::string text;
    bool numbers = true;
    for (const toml::node& entry : *node.as_array()) {
      numbers = numbers && entry.is_integer();
      if (numbers) text += (text.empty() ? "" : ",") + std::to_string(*entry.value_exact<int64_t>());
    }
    if (numbers) return text;
  }
  const char* form = is_switch ? "true or false" : nullptr;
  const std::string expected = rule.kind == VALUE_ONU_TYPES ? "a list of at most 32 ONU types from 0 to 65535"
                               : form != nullptr            ? form
                               : is_number                  ? value_form(rule)
                                                            : value_form(rule) + " in quotes";
  throw ctl_failure(STATUS_STATE_FILE, name + ": expected " + expected);
}

} // namespace

char letter_parse(const std::string& what, const std::string& text) {
  if (text.size() == 1 && std::isalpha(static_cast<unsigned char>(text[0])) != 0) return text[0];
  throw ctl_failure(STATUS_REFUSED,
                    what + ": expected a letter from A to Z or a to z, found \"" + printable(text) + "\"");
}

std::string profile_text(uint8_t kind, uint32_t circuit_template, const std::string& given) {
  if (circuit_template != 0 && kind != 0) {
    throw ctl_failure(STATUS_REFUSED, "the built-in templates are for circuit-id profiles only");
  }
  if (circuit_template != 0 && !given.empty()) {
    throw ctl_failure(STATUS_REFUSED, "a profile with a built-in template has no text of its own");
  }
  if (circuit_template != 0) return PROFILE_TEMPLATES[circuit_template]; // not used, but empty ones are refused
  if (given.empty()) {
    throw ctl_failure(STATUS_REFUSED, "the template of a profile is empty: the agent would refuse it without a word");
  }
  return template_stored("profile", given);
}

const toml::table* state_reader::table_of(const toml::node& node, const std::string& name) {
  if (!node.is_table()) fault(node, name + ": expected a section");
  return node.as_table();
}

void state_reader::unknown_keys(const toml::table& table, const std::set<std::string>& known) {
  for (const auto& [key, node] : table) {
    if (known.count(std::string(key.str())) != 0) continue;
    fault(key.source(), std::string(key.str()) + ": unknown key");
  }
}

void state_reader::warn_templates(const toml::node& node, const std::string& name, const std::string& stored) {
  const std::string prefix = name + ": ";
  for (const std::string& warning : template_warnings(stored)) warn(node, prefix + warning);
}

void state_reader::read_settings(const toml::table& table, setting_scope scope, std::vector<wanted_setting>& wanted) {
  for (const setting_row& row : all_settings()) {
    const toml::node* node = table.get(row.name);
    if (node == nullptr) continue;
    if (row.scope != scope) {
      fault(*node,
            std::string(row.name) + (scope == SCOPE_AGENT ? ": belongs to an [[instance]]" : ": belongs to [agent]"));
      continue;
    }
    guarded(*node, [&] {
      const setting_value value = value_parse(row.rule, row.name, plain_text(row.rule, row.name, *node));
      if (row.rule.kind == VALUE_TEMPLATE) warn_templates(*node, row.name, std::get<std::string>(value));
      wanted.push_back({&row, value});
    });
  }
}

void state_reader::check_together(const toml::table& table, const std::vector<wanted_setting>& wanted) {
  const auto has = [&table](const char* name) { return table.contains(name); };
  if (has("dhcpv6") && (has("option18") || has("option37"))) {
    fault(*table.get("dhcpv6"), "dhcpv6: sets option18 and option37; name either it or them");
  }
  if (has("slot") && !has("host-name")) {
    fault(*table.get("slot"), "slot: travels with the host name, which cannot be read back; name host-name as well");
  }
  for (const wanted_setting& setting : wanted) {
    if (std::string_view(setting.row->name) != "host-name") continue;
    warn(*table.get("host-name"),
         "host-name: travels with the whole circuit-ID block, which is fetched, changed and sent");
  }
}

void state_reader::read_releases(const toml::node& node) {
  if (!node.is_array()) return fault(node, "release: expected a list of letters");
  for (const toml::node& entry : *node.as_array()) {
    guarded(entry, [&] { state_.releases += letter_parse("release", entry.value_exact<std::string>().value_or("")); });
  }
  if (!state_.releases.empty()) warn(node, "release: a letter is released for all instances");
}

void state_reader::read_agent(const toml::table& table) {
  std::set<std::string> known = {"release"};
  for (const setting_row& row : all_settings()) known.insert(row.name);
  unknown_keys(table, known);
  read_settings(table, SCOPE_AGENT, state_.agent);
  if (const toml::node* node = table.get("release")) read_releases(*node);
}

void state_reader::read_pins(const toml::node& node, std::vector<wanted_pin>& pins) {
  const toml::table* table = table_of(node, "override");
  if (table == nullptr) return;
  for (const auto& [key, entry] : *table) {
    const std::string name(key.str());
    guarded(entry, [&, &text_node = entry] {
      const value_rule rule = {VALUE_TEXT, 0, PIN_LIMIT};
      const char letter = letter_parse("override", name);
      const setting_value value =
          value_parse(rule, "override." + name, plain_text(rule, "override." + name, text_node));
      pins.push_back({letter, std::get<std::string>(value)});
    });
  }
}

uint32_t state_reader::number_of(const toml::table& table, const char* key, uint32_t low, uint32_t high) {
  const toml::node* node = table.get(key);
  const auto number = node != nullptr ? node->value_exact<int64_t>() : std::nullopt;
  if (number && *number >= low && *number <= high) return static_cast<uint32_t>(*number);
  fault(node != nullptr ? *node : table, std::string(key) + ": expected " + value_form({VALUE_NUMBER, low, high}));
  return low;
}

template <size_t size>
uint8_t state_reader::choice_of(const toml::table& table, const char* key, const char* const (&names)[size]) {
  const toml::node* node = table.get(key);
  const auto text = node != nullptr ? node->value_exact<std::string>() : std::nullopt;
  std::string expected;
  for (size_t i = 0; i < size; ++i) {
    if (text && *text == names[i]) return static_cast<uint8_t>(i);
    expected += std::string(i == 0 ? "\"" : " or \"") + names[i] + "\"";
  }
  fault(node != nullptr ? *node : table, std::string(key) + ": expected " + expected);
  return 0;
}

void state_reader::read_profile(const toml::table& table, std::vector<wanted_profile>& profiles) {
  unknown_keys(table, {"number", "kind", "template", "text", "absent"});
  const size_t faults = faults_.size();
  wanted_profile profile = {};
  profile.number = number_of(table, "number", PROFILE_MIN, LINE_ID_VLAN_PROFILES);
  profile.kind = choice_of(table, "kind", PROFILE_KINDS);
  if (table.contains("template")) profile.circuit_template = choice_of(table, "template", PROFILE_TEMPLATES);
  if (const toml::node* node = table.get("absent")) {
    if (!node->is_boolean()) fault(*node, "absent: expected true or false");
    profile.absent = node->value_or(false);
  }
  const toml::node* node = table.get("text");
  if (node != nullptr && !node->is_string()) fault(*node, "text: expected a template in quotes");
  if (faults_.size() != faults) return;
  if (profile.absent) return profiles.push_back(profile);
  const toml::node& where = node != nullptr ? *node : table;
  const bool good = guarded(where, [&] {
    profile.text = profile_text(profile.kind, profile.circuit_template, node != nullptr ? node->value_or("") : "");
  });
  if (!good) return;
  if (profile.circuit_template == 0) warn_templates(where, "text", profile.text);
  profiles.push_back(profile);
}

void state_reader::read_profiles(const toml::node& node, std::vector<wanted_profile>& profiles) {
  if (!node.is_array_of_tables()) return fault(node, "profile: expected sections in double brackets");
  for (const toml::node& entry : *node.as_array()) read_profile(*entry.as_table(), profiles);
}

void state_reader::read_instance(const toml::table& table) {
  std::set<std::string> known = {"oltid", "override", "profile"};
  for (const setting_row& row : all_settings()) known.insert(row.name);
  unknown_keys(table, known);
  wanted_instance instance = {};
  instance.oltid = static_cast<uint8_t>(number_of(table, "oltid", 0, LINE_ID_INSTANCES - 1));
  for (const wanted_instance& other : state_.instances) {
    if (other.oltid == instance.oltid)
      fault(table, "oltid: instance " + std::to_string(other.oltid) + " is there twice");
  }
  read_settings(table, SCOPE_INSTANCE, instance.settings);
  check_together(table, instance.settings);
  if (const toml::node* node = table.get("override")) read_pins(*node, instance.pins);
  if (const toml::node* node = table.get("profile")) read_profiles(*node, instance.profiles);
  state_.instances.push_back(std::move(instance));
}

void state_reader::read_instances(const toml::node& node) {
  if (!node.is_array_of_tables()) return fault(node, "instance: expected sections in double brackets");
  for (const toml::node& entry : *node.as_array()) read_instance(*entry.as_table());
}

wanted_state state_reader::read(const toml::table& file) {
  unknown_keys(file, {"agent", "instance"});
  if (const toml::node* node = file.get("agent")) {
    if (const toml::table* table = table_of(*node, "agent")) read_agent(*table);
  }
  if (const toml::node* node = file.get("instance")) read_instances(*node);
  std::string all;
  for (const auto& [line, text] : faults_) all += (all.empty() ? "" : "\n") + text;
  if (!all.empty()) throw ctl_failure(STATUS_STATE_FILE, all);
  return std::move(state_);
}

wanted_state state_read(const std::string& path) {
  state_reader reader(path);
  errno = 0;
  std::ifstream file(path);
  std::stringstream text;
  if (!file || !(text << file.rdbuf())) reader.refuse(0, errno != 0 ? std::strerror(errno) : "empty");
  try {
    return reader.read(toml::parse(text.str()));
  } catch (const toml::parse_error& error) {
    reader.refuse(error.source().begin.line, error.description());
  }
}
