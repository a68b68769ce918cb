// The commands and their arguments.
#include "ctl/cli.h"

#include "ctl/block.h"
#include "ctl/commands.h"
#include "ctl/completion.h"
#include "ctl/failure.h"
#include "ctl/output.h"
#include "ctl/session.h"
#include "ctl/state_file.h"
#include "include/line_id.h"

#include <algorithm>

namespace {

constexpr const char* ABOUT = "lineidctl configures a running Line ID agent and reads it.";
const std::vector<std::string> ON_OFF = {"on", "off"};
const std::vector<std::string> KINDS(std::begin(PROFILE_KINDS), std::end(PROFILE_KINDS));
const std::vector<std::string> TEMPLATES(std::begin(PROFILE_TEMPLATES), std::end(PROFILE_TEMPLATES));
const std::vector<std::string> FORMATS(std::begin(FORMAT_NAMES), std::end(FORMAT_NAMES));
constexpr const char* TEMPLATE_HELP = "template; %_ stands for a space";

std::vector<std::string> setting_names(const std::function<bool(const setting_row&)>& wanted) {
  std::vector<std::string> names;
  for (const setting_row& row : all_settings()) {
    if (wanted(row)) names.emplace_back(row.name);
  }
  return names;
}

uint8_t index_of(const std::vector<std::string>& names, const std::string& name) {
  return static_cast<uint8_t>(std::find(names.begin(), names.end(), name) - names.begin());
}

} // namespace

command_line::command_line() : app(ABOUT, "lineidctl") {
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("lineidctl " LINE_ID_VERSION));
  app.footer(std::string("lineidctl COMMAND --help says more.\n\n") + EXIT_STATUSES);
  app.add_option("--queue-key", key, "key of the agent's message queue, when its host names one");
  add_settings();
  add_reports();
  add_bindings();
  add_profiles();
  add_letters();
  add_together();
  add_files();
  add_template();
}

CLI::App* command_line::group(CLI::App* parent, const std::string& command, const std::string& about) {
  CLI::App* sub = parent->add_subcommand(command, about);
  sub->require_subcommand(1);
  return sub;
}

CLI::App* command_line::add(CLI::App* parent, const std::string& command, const std::string& about,
                            std::function<void()> work, bool needs_agent) {
  CLI::App* sub = parent->add_subcommand(command, about);
  sub->callback([this, work = std::move(work), needs_agent] {
    run = [this, work, needs_agent] {
      if (needs_agent) session_open(key);
      work();
    };
  });
  return sub;
}

void command_line::oltid_of(CLI::App* command) {
  CLI::Option* option = command->add_option("--oltid", oltid, "configuration instance");
  option->check(CLI::Range(0, LINE_ID_INSTANCES - 1))->capture_default_str();
  for (int id = 0; id < LINE_ID_INSTANCES; ++id) words[option].words.push_back(std::to_string(id));
}

CLI::Option* command_line::choice(CLI::App* command, const std::string& argument, std::string& target,
                                  const std::vector<std::string>& choices, const std::string& help) {
  CLI::Option* option = command->add_option(argument, target, help)->check(CLI::IsMember(choices));
  words[option].words = choices;
  return option;
}

void command_line::add_settings() {
  CLI::App* set = add(&app, "set", "Set one setting and read it back where the agent tells it",
                      [this] { command_set(instance(), name, value); });
  words[set->add_option("NAME", name, "setting; lineidctl settings lists them")->required()].words =
      setting_names([](const setting_row& row) { return row.write != nullptr; });
  words[set->add_option("VALUE", value, "its value")->required()].setting_value = true;
  oltid_of(set);

  CLI::App* get = add(&app, "get", "Print settings; a single one without its name", [this] {
    if (names.empty() && !all) throw ctl_failure(STATUS_USAGE, "get: name settings, or say --all");
    command_get(instance(), all ? std::vector<std::string>{} : names, json);
  });
  words[get->add_option("NAME", names, "settings")].words =
      setting_names([](const setting_row& row) { return row.read != nullptr; });
  get->add_flag("--all", all, "all settings; those that the agent does not tell are unknown");
  get->add_flag("--json", json, "one line of JSON");
  oltid_of(get);

  add(&app, "settings", "List the settings with their values", command_settings, false);

  CLI::App* debug = add(&app, "debug", "Switch traces of a category, for the whole agent",
                        [this] { command_set(0, "debug-" + name, value); });
  std::vector<std::string> categories;
  for (const std::string& row : setting_names([](const setting_row& row) { return row.rule.kind == VALUE_SWITCH; })) {
    if (row.rfind("debug-", 0) == 0) categories.push_back(row.substr(6));
  }
  choice(debug, "CATEGORY", name, categories, "what is traced")->required();
  choice(debug, "STATE", value, ON_OFF, "on or off")->required();

  CLI::App* level = add(&app, "level", "Set the level of the traces: 0 errors, 1 also warnings, 2 also information",
                        [this] { command_set(0, "debug-level", value); });
  choice(level, "LEVEL", value, {"0", "1", "2"}, "level")->required();

  CLI::App* whitelist = group(&app, "whitelist", "ONU types whose frames are left alone, for the whole agent");
  CLI::App* list = add(whitelist, "set", "Replace the list", [this] { command_set(0, "whitelist", value); });
  list->add_option("TYPES", value, "numbers with commas between them; \"\" empties the list")->required();
}

void command_line::add_reports() {
  struct report_row {
    const char* name;
    report_kind kind;
    const char* about;
  };
  constexpr report_row REPORTS[] = {
      {"statistics", REPORT_STATISTICS, "Counters of the whole agent"},
      {"status", REPORT_STATUS, "Enables and letters of an instance"},
      {"whitelist", REPORT_WHITELIST, "ONU types that are left alone"},
      {"profiles", REPORT_PROFILES, "Template profiles of an instance"},
  };
  CLI::App* show =
      group(&app, "show", "Have the agent print a report, and print it here when its host publishes its console");
  for (const report_row& row : REPORTS) {
    CLI::App* sub = add(show, row.name, row.about, [this, kind = row.kind] { command_show(instance(), kind); });
    if (row.kind != REPORT_STATISTICS) oltid_of(sub);
  }
  CLI::App* bindings = add(show, "bindings", "MAC addresses and the ONUs behind which they were seen", [this] {
    command_show(instance(), kind == "dhcp" ? REPORT_DHCP_BINDINGS : REPORT_PPPOE_BINDINGS);
  });
  choice(bindings, "TABLE", kind, {"dhcp", "pppoe"}, "dhcp or pppoe")->required();
  oltid_of(bindings);

  CLI::App* statistics = group(&app, "statistics", "Counters of the whole agent");
  add(statistics, "reset", "Zero all counters", [] { command_reset_statistics(0); });
}

void command_line::add_bindings() {
  CLI::App* remove = group(&app, "delete", "Forget what was learnt");
  CLI::App* binding = add(remove, "binding", "Forget the bindings of a MAC, or of all MACs behind an ONU", [this] {
    if (mac.empty() == onu.empty()) throw ctl_failure(STATUS_USAGE, "delete binding: give either --mac or --onu");
    command_delete_binding(instance(), kind == "pppoe", mac, onu);
  });
  choice(binding, "TABLE", kind, {"dhcp", "pppoe"}, "dhcp or pppoe")->required();
  binding->add_option("--mac", mac, "MAC address");
  binding->add_option("--onu", onu, "PON number and authorisation number of the ONU")
      ->expected(2)
      ->type_name("PON ONU");
  oltid_of(binding);
}

void command_line::add_profiles() {
  CLI::App* profile = group(&app, "profile", "Numbered templates, for frames that the host assigns to one");
  CLI::App* add_one = add(profile, "add", "Store a profile", [this] {
    command_profile_add(instance(), number, index_of(KINDS, kind), index_of(TEMPLATES, circuit_template), text);
  });
  CLI::App* delete_one = add(profile, "delete", "Delete a profile: its frames then get an empty text",
                             [this] { command_profile_delete(instance(), number, index_of(KINDS, kind)); });
  for (CLI::App* sub : {add_one, delete_one}) {
    sub->add_option("NUMBER", number, "number")
        ->required()
        ->check(CLI::Range(PROFILE_MIN, uint32_t{LINE_ID_VLAN_PROFILES}));
    choice(sub, "KIND", kind, KINDS, "what the template is for")->required();
    oltid_of(sub);
  }
  add_one->add_option("TEXT", text, TEMPLATE_HELP);
  choice(add_one, "--template", circuit_template, TEMPLATES, "the text, or a built-in template")->capture_default_str();
}

void command_line::add_letters() {
  CLI::App* pin = add(&app, "override", "Pin a letter of the templates to a text, whatever the frames say",
                      [this] { command_override(instance(), name, text); });
  pin->add_option("LETTER", name, "A to Z, a to z")->required();
  pin->add_option("TEXT", text, "at most 50 octets")->required();
  oltid_of(pin);
  CLI::App* release =
      add(&app, "release", "Release a pinned letter, for all instances", [this] { command_release(0, name); });
  release->add_option("LETTER", name, "A to Z, a to z")->required();
}

void command_line::add_together() {
  CLI::App* identity = add(&app, "identity", "Set access-node, rack and frame in one command of the agent",
                           [this] { command_identity(instance(), text, rack, frame); });
  identity->add_option("ACCESS-NODE", text, "at most 50 octets")->required();
  identity->add_option("RACK", rack, "0 to 65535")->required();
  identity->add_option("FRAME", frame, "0 to 65535")->required();
  oltid_of(identity);

  CLI::App* remote = add(&app, "remote-id", "Switch the Remote-ID and set the core card's MAC in one command",
                         [this] { command_remote_id(instance(), value == "on", mac); });
  choice(remote, "STATE", value, ON_OFF, "on or off")->required();
  remote->add_option("--mac", mac, "MAC address of the core card")->required();
  oltid_of(remote);

  CLI::App* block = group(&app, "block", "The circuit-ID block: identity and enables of an instance as one record");
  CLI::App* block_get = add(block, "get", "Print the block; the host name cannot be read",
                            [this] { command_block_get(instance(), json); });
  block_get->add_flag("--json", json, "one line of JSON");
  CLI::App* block_set =
      add(block, "set", "Fetch the block, change what is named and send it; host-name has to be named",
          [this] { command_block_set(instance(), names); });
  CLI::Option* assignments = block_set->add_option("NAME=VALUE", names, "settings of the block");
  assignments->required();
  for (const std::string& field : block_names()) words[assignments].words.push_back(field + "=");

  CLI::App* format = group(&app, "format", "Circuit-ID format and own template of an instance as one record");
  CLI::App* format_get = add(format, "get", "Print both", [this] { command_format_get(instance(), json); });
  format_get->add_flag("--json", json, "one line of JSON");
  CLI::App* format_set = add(format, "set", "Set both; the stored template stays when none is given", [this] {
    command_format_set(instance(), value, text.empty() ? std::nullopt : std::optional(text));
  });
  choice(format_set, "FORMAT", value, FORMATS, "custom, ctc or cnc")->required();
  format_set->add_option("TEMPLATE", text, TEMPLATE_HELP);
  for (CLI::App* sub : {block_get, block_set, format_get, format_set}) oltid_of(sub);
}

void command_line::add_files() {
  CLI::App* apply = add(
      &app, "apply", "Bring the agent to the state that a TOML file describes",
      [this] { command_apply(text, dry_run, key); }, false);
  words[apply->add_option("FILE", text, "the file")->required()].files = true;
  apply->add_flag("--dry-run", dry_run, "check and compare, send nothing");

  CLI::App* completion = add(
      &app, "completion", "Print a completion script", [this] { std::fputs(completion_bash(*this).c_str(), output()); },
      false);
  choice(completion, "SHELL", value, {"bash"}, "bash")->required();
}

void command_line::add_template() {
  CLI::App* group_of = group(&app, "template", "Check and expand templates; no agent is needed");
  CLI::App* check = add(
      group_of, "check", "Say what is wrong with a template, and how long its text can become",
      [this] { command_template_check(text); }, false);
  CLI::App* show = add(
      group_of, "show", "Expand a template", [this] { command_template_show(text, names); }, false);
  for (CLI::App* sub : {check, show}) sub->add_option("TEMPLATE", text, TEMPLATE_HELP)->required();
  show->add_option("LETTER=TEXT", names, "texts of letters; the others become 0");
}
