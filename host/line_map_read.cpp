// A line map from its file, as a whole or not at all.
#include "host/line_map_parts.h"

#include "host/failure.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* BUILT_IN = R"(
[device]
access_type = "OLT"
card_type = "PON"
olt_slot = 1

[[instance]]
option82 = true
option18 = true
option37 = true
pppoe_plus = true
circuit_id = true
remote_id = true
ani = "an1"

[[line]]
name = "default"
default = true
onu_id = "onu1"
)";

std::string read_file(const std::string& path) {
  errno = 0;
  FILE* file = std::fopen(path.c_str(), "rb");
  std::string text;
  char part[4096];
  for (size_t len; file != nullptr && (len = std::fread(part, 1, sizeof(part), file)) > 0;) text.append(part, len);
  const int error = file == nullptr || std::ferror(file) != 0 ? errno : 0;
  if (file != nullptr) std::fclose(file);
  if (error == 0) return text;
  throw host_failure(EXIT_LINES, "cannot read the line map " + path + ": " + std::strerror(error));
}

void check_device(toml_fields& root, const line_map& map) {
  const auto any_of_mode = [&map](uint8_t mode) {
    return std::any_of(map.instances.begin(), map.instances.end(),
                       [mode](const auto& instance) { return instance->mode == mode; });
  };
  if (any_of_mode(LINE_ID_MODE_OLT) && !map.device.olt_slot) {
    root.fault("device", "expected olt_slot, which an instance of mode \"olt\" needs");
  }
  if (any_of_mode(LINE_ID_MODE_DSL) && !map.has_port_facts) {
    root.fault("line", "expected port_type, which an instance of mode \"dsl\" needs");
  }
}

line_map parse(const std::string& text, const std::string& path) {
  toml_faults faults(path);
  line_map map = {};
  std::vector<shared_setting> shared;
  try {
    const toml::table tree = toml::parse(text, path);
    toml_fields root(tree, "", faults);
    root.read_section("device", [&](toml_fields& fields) { read_device(fields, map.device); });
    root.read_section("agent", [&](toml_fields& fields) { read_agent(fields, map.agent, shared); });
    root.read_section("white_list", [&](toml_fields& fields) { read_white_list(fields, map.agent.white_list); });
    root.read_sections("instance", [&](toml_fields& fields) { read_instance(fields, map); });
    root.read_sections("profile", [&](toml_fields& fields) {
      read_profile(fields, map);
      if (!has_instance(map, map.profiles.back().instance)) {
        fields.fault("instance", "there is no [[instance]] of this number");
      }
    });
    root.read_sections("line", [&](toml_fields& fields) { read_line(fields, map); });
    if (!root.has("instance")) root.fault("instance", "expected at least one [[instance]]");
    if (!root.has("line")) root.fault("line", "expected at least one [[line]]");
    check_device(root, map);
    root.finish();
  } catch (const toml::parse_error& error) {
    faults.add(error.source(), std::string(error.description()));
  }
  faults.raise();
  for (const auto& instance : map.instances) {
    for (const shared_setting& setting : shared) instance->table.*setting.field = setting.value;
  }
  map.warnings = find_defeated_settings(map);
  return map;
}

} // namespace

line_map line_map_read(const std::string& path) { return parse(read_file(path), path); }

line_map line_map_built_in() { return parse(BUILT_IN, "built-in line map"); }
