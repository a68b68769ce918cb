// The commands that configure the agent and read it.
#include "ctl/commands.h"

#include "ctl/apply.h"
#include "ctl/block.h"
#include "ctl/console_reader.h"
#include "ctl/failure.h"
#include "ctl/output.h"
#include "ctl/session.h"
#include "ctl/template_text.h"
#include "include/line_id.h"

#include <algorithm>

namespace {

constexpr uint32_t TEXT_LIMIT = LINE_ID_TEXT_SIZE - 1;

struct shown_value {
  const setting_row* row;
  std::optional<setting_value> value; // none: the agent does not tell it
};

uint32_t octets(const std::string& text) { return static_cast<uint32_t>(text.size()); }

// The call was sent; the agent has carried it out when this returns.
void sent(int32_t result, uint8_t oltid, const std::string& what) {
  session_check(result, what);
  session_barrier(oltid, what);
}

void print_json(uint8_t oltid, const std::vector<shown_value>& values) {
  nlohmann::ordered_json settings = nlohmann::ordered_json::object();
  for (const shown_value& shown : values) {
    settings[shown.row->name] = shown.value ? value_json(shown.row->rule, *shown.value) : nullptr;
  }
  const nlohmann::ordered_json all = {{"instance", oltid}, {"settings", settings}};
  output_line(all.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

void print_table(const std::vector<shown_value>& values) {
  size_t width = 0;
  for (const shown_value& shown : values) width = std::max(width, std::string_view(shown.row->name).size());
  for (const shown_value& shown : values) {
    const std::string text = shown.value ? value_text(shown.row->rule, *shown.value) : "unknown";
    std::fprintf(output(), "%-*s  %s\n", static_cast<int>(width), shown.row->name, text.c_str());
  }
}

std::vector<shown_value> shown_values(const named_values& values) {
  std::vector<shown_value> all;
  for (const auto& [name, value] : values) all.push_back({&setting_find(name), value});
  return all;
}

void print_values(uint8_t oltid, const std::vector<shown_value>& values, bool json) {
  if (json) return print_json(oltid, values);
  print_table(values);
}

void warn_template(const setting_value& value) {
  for (const std::string& warning : template_warnings(std::get<std::string>(value))) complain("warning: " + warning);
}

void require(const setting_row& row, uint8_t oltid, const setting_value& wanted) {
  const setting_value now = session_read(row, oltid);
  if (now != wanted) {
    throw ctl_failure(STATUS_NOT_TAKEN,
                      std::string(row.name) + ": the agent did not take it over, it has " + value_text(row.rule, now));
  }
}

// "name=value", split at the first "=".
std::pair<std::string, std::string> assignment(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos) {
    throw ctl_failure(STATUS_USAGE, "expected NAME=VALUE, found \"" + printable(text) + "\"");
  }
  return {text.substr(0, equals), text.substr(equals + 1)};
}

} // namespace

void command_set(uint8_t oltid, const std::string& name, const std::string& text) {
  const setting_row& row = setting_find(name);
  const setting_value value = value_parse(row.rule, name, text);
  if (row.rule.kind == VALUE_TEMPLATE) warn_template(value);
  session_write(row, oltid, value);
  if (row.read != nullptr) require(row, oltid, value);
}

void command_get(uint8_t oltid, const std::vector<std::string>& names, bool json) {
  std::vector<shown_value> values;
  values.reserve(names.size());
  for (const std::string& name : names) values.push_back({&setting_find(name), std::nullopt});
  if (names.empty()) {
    for (const setting_row& row : all_settings()) values.push_back({&row, std::nullopt});
  }
  for (shown_value& shown : values) {
    if (shown.row->read != nullptr) shown.value = session_read(*shown.row, oltid);
  }
  if (names.size() != 1 || json) return print_values(oltid, values, json);
  const shown_value& only = values.front();
  if (!only.value) throw ctl_failure(STATUS_USAGE, names.front() + ": the agent does not tell this setting");
  output_line(value_text(only.row->rule, *only.value));
}

void command_settings() {
  for (const setting_row& row : all_settings()) {
    const char* scope = row.scope == SCOPE_AGENT ? "agent" : "instance";
    const char* access = row.write == nullptr ? "read" : row.read == nullptr ? "set" : "read, set";
    std::fprintf(output(), "%-24s %-9s %-10s %s (%s)\n", row.name, scope, access, row.help,
                 value_form(row.rule).c_str());
  }
}

void command_show(uint8_t oltid, report_kind kind) {
  const auto ask = [oltid, kind] {
    int32_t ret = LINE_ID_OK;
    switch (kind) {
    case REPORT_STATISTICS: ret = line_id_show_pkt_statistics(); break;
    case REPORT_STATUS: ret = line_id_show_lineid_status(oltid); break;
    case REPORT_DHCP_BINDINGS: ret = line_id_show_dhcp_binding(oltid); break;
    case REPORT_PPPOE_BINDINGS: ret = line_id_show_pppoe_binding(oltid); break;
    case REPORT_WHITELIST: ret = line_id_show_pppoe_whitelist(oltid); break;
    case REPORT_PROFILES: ret = lineid_vlan_profile_cfg_show(oltid); break;
    }
    sent(ret, oltid, "report");
  };
  std::string report;
  if (console_report(ask, report) == REPORT_ELSEWHERE) {
    complain("the host publishes no console: the report was printed on the agent's own standard output");
    return;
  }
  std::fputs(report.c_str(), output());
}

void command_reset_statistics(uint8_t oltid) { sent(line_id_reset_statistics(oltid), oltid, "statistics"); }

void command_delete_binding(uint8_t oltid, bool pppoe, const std::string& mac, const std::vector<uint16_t>& onu) {
  if (mac.empty()) {
    const auto call =
        pppoe ? line_id_del_pppoe_anti_spoofing_entry_by_onu : line_id_del_dhcp_anti_spoofing_entry_by_onu;
    return sent(call(oltid, onu.at(0), onu.at(1)), oltid, "binding");
  }
  const mac_address octets = mac_parse("--mac", mac);
  const auto call = pppoe ? line_id_del_pppoe_anti_spoofing_entry_by_mac : line_id_del_dhcp_anti_spoofing_entry_by_mac;
  sent(call(oltid, octets.data(), uint32_t{sizeof(mac_address)}), oltid, "binding");
}

void command_profile_add(uint8_t oltid, uint32_t number, uint8_t kind, uint8_t circuit_template,
                         const std::string& given) {
  const std::string text = profile_text(kind, circuit_template, given);
  if (circuit_template == 0) warn_template(text);
  sent(lineid_vlan_profile_cfg_add(oltid, kind, number, circuit_template, text.data(), octets(text)), oltid, "profile");
}

void command_profile_delete(uint8_t oltid, uint32_t number, uint8_t kind) {
  sent(lineid_vlan_profile_cfg_del(oltid, kind, number), oltid, "profile");
}

void command_override(uint8_t oltid, const std::string& letter, const std::string& text) {
  const auto code = static_cast<uint8_t>(letter_parse("override", letter));
  value_parse({VALUE_TEXT, 0, TEXT_LIMIT}, "override", text);
  sent(line_id_override_param(oltid, code, text.data(), octets(text)), oltid, "override");
}

void command_release(uint8_t oltid, const std::string& letter) {
  const auto code = static_cast<uint8_t>(letter_parse("release", letter));
  sent(line_id_unoverride_param(oltid, code), oltid, "release");
  complain("note: " + letter + " is released for all instances");
}

void command_identity(uint8_t oltid, const std::string& access_node, uint16_t rack, uint16_t frame) {
  const setting_row& row = setting_find("access-node");
  const setting_value text = value_parse(row.rule, row.name, access_node);
  sent(line_id_set_ani_param(oltid, access_node.data(), octets(access_node), rack, frame), oltid, "identity");
  require(row, oltid, text);
  require(setting_find("rack"), oltid, uint32_t{rack});
  require(setting_find("frame"), oltid, uint32_t{frame});
}

void command_remote_id(uint8_t oltid, bool enable, const std::string& text) {
  const mac_address mac = mac_parse("--mac", text);
  const uint8_t value = enable ? 1 : 0;
  sent(line_id_set_remote_id_enable_and_params(oltid, value, mac.data(), uint32_t{sizeof(mac_address)}), oltid,
       "remote-id");
  require(setting_find("remote-id"), oltid, uint32_t{value});
}

void command_block_get(uint8_t oltid, bool json) {
  session_barrier(oltid, "block");
  named_values values;
  session_check(block_read(oltid, values), "block");
  print_values(oltid, shown_values(values), json);
}

void command_block_set(uint8_t oltid, const std::vector<std::string>& assignments) {
  const std::vector<std::string> known = block_names();
  named_values changes;
  for (const std::string& text : assignments) {
    const auto [name, value] = assignment(text);
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      throw ctl_failure(STATUS_USAGE, "the circuit-ID block does not carry \"" + printable(name) + "\"");
    }
    changes.emplace_back(name, value_parse(setting_find(name).rule, name, value));
  }
  const bool named =
      std::any_of(changes.begin(), changes.end(), [](const auto& it) { return it.first == "host-name"; });
  if (!named) {
    throw ctl_failure(STATUS_USAGE, "the circuit-ID block carries the host name, which cannot be read and would be "
                                    "emptied: give host-name=... as well");
  }
  session_barrier(oltid, "block");
  sent(block_change(oltid, changes), oltid, "block");
  for (const auto& [name, value] : changes) {
    const setting_row& row = setting_find(name);
    if (row.read != nullptr) require(row, oltid, value);
  }
}

void command_format_get(uint8_t oltid, bool json) {
  session_barrier(oltid, "format");
  line_id_circuit_id_format_mode block = {};
  session_check(line_id_get_circuit_id_format_mode(oltid, &block), "format");
  const std::string text(block.custom_format, strnlen(block.custom_format, sizeof(block.custom_format)));
  const named_values values = {{"circuit-id-format", uint32_t{block.line_id_format_type}},
                               {"circuit-id-template", text}};
  print_values(oltid, shown_values(values), json);
}

void command_format_set(uint8_t oltid, const std::string& format, const std::optional<std::string>& given) {
  const setting_row& format_row = setting_find("circuit-id-format");
  const setting_row& template_row = setting_find("circuit-id-template");
  const setting_value type = value_parse(format_row.rule, format_row.name, format);
  setting_value text;
  if (given) {
    text = value_parse(template_row.rule, template_row.name, *given);
    warn_template(text);
  } else {
    text = session_read(template_row, oltid);
  }
  line_id_circuit_id_format_mode block = {};
  block.line_id_format_type = static_cast<uint8_t>(std::get<uint32_t>(type));
  const auto& stored = std::get<std::string>(text);
  std::copy_n(stored.data(), std::min(stored.size(), sizeof(block.custom_format)), block.custom_format);
  const int32_t ret =
      oltid == 0 ? line_id_set_circuit_id_format_mode(&block) : volt_line_id_set_circuit_id_format_mode(oltid, &block);
  sent(ret, oltid, "format");
  require(format_row, oltid, type);
  require(template_row, oltid, text);
}

void command_apply(const std::string& path, bool dry_run, std::optional<uint32_t> key) {
  const wanted_state state = state_read(path);
  for (const std::string& warning : state.warnings) complain("warning: " + warning);
  session_open(key);
  apply_state(state, dry_run);
}

void command_template_check(const std::string& given) {
  const std::string stored = template_stored("template", given);
  const template_length longest = template_longest(stored);
  std::fprintf(output(), "right: %zu octets, at most %zu when it is expanded (%zu with every letter pinned to %u)\n",
               stored.size(), longest.usual, longest.pinned, TEXT_LIMIT);
  warn_template(stored);
}

void command_template_show(const std::string& given, const std::vector<std::string>& assignments) {
  const std::string stored = template_stored("template", given);
  letter_texts letters;
  for (const std::string& text : assignments) {
    const auto [letter, value] = assignment(text);
    value_parse({VALUE_TEXT, 0, TEXT_LIMIT}, letter, value);
    letters.emplace_back(letter_parse("template", letter), value);
  }
  output_line(printable(template_expand(stored, letters)));
}
