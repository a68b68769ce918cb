// Comparing, sending and reading back.
#include "ctl/apply.h"

#include "ctl/block.h"
#include "ctl/failure.h"
#include "ctl/output.h"
#include "ctl/session.h"
#include "ctl/template_text.h"
#include "include/line_id.h"

#include <algorithm>

namespace {

class applier {
public:
  explicit applier(bool dry_run) : dry_run_(dry_run) {}

  void agent(const wanted_state& state);
  void instance(const wanted_instance& wanted);
  void summary() const;

private:
  void setting_to(const wanted_setting& wanted, uint8_t oltid, const std::string& where);
  void block_to(const std::vector<wanted_setting>& wanted, uint8_t oltid, const std::string& where);
  void profile_to(const wanted_profile& wanted, uint8_t oltid, const std::string& where);
  // `send` gives the result of a call; what it set cannot be read back.
  template <typename function>
  void blind(const std::string& where, const std::string& what, uint8_t oltid, function send);

  bool dry_run_;
  uint32_t same_ = 0;
  uint32_t changed_ = 0;
  uint32_t sent_ = 0;
};

bool in_block(const setting_row& row) {
  const std::string_view name = row.name;
  return name == "slot" || name == "host-name";
}

void require_taken(const setting_row& row, uint8_t oltid, const std::string& where, const setting_value& wanted) {
  const setting_value now = session_read(row, oltid);
  if (now == wanted) return;
  throw ctl_failure(STATUS_NOT_TAKEN,
                    where + row.name + ": the agent did not take it over, it has " + value_text(row.rule, now));
}

template <typename function>
void applier::blind(const std::string& where, const std::string& what, uint8_t oltid, function send) {
  ++sent_;
  output_line(where + what);
  if (dry_run_) return;
  session_check(send(), where + what);
  session_barrier(oltid, where + what);
}

void applier::setting_to(const wanted_setting& wanted, uint8_t oltid, const std::string& where) {
  const setting_row& row = *wanted.row;
  const std::string target = value_text(row.rule, wanted.value);
  if (row.read == nullptr) {
    return blind(where, std::string(row.name) + ": unknown -> " + target, oltid,
                 [&] { return row.write(oltid, wanted.value); });
  }
  const setting_value now = session_read(row, oltid);
  if (now == wanted.value) {
    ++same_;
    return;
  }
  ++changed_;
  output_line(where + row.name + ": " + value_text(row.rule, now) + " -> " + target);
  if (dry_run_) return;
  session_write(row, oltid, wanted.value);
  require_taken(row, oltid, where, wanted.value);
}

void applier::block_to(const std::vector<wanted_setting>& wanted, uint8_t oltid, const std::string& where) {
  named_values changes;
  std::string words;
  const wanted_setting* slot = nullptr;
  for (const wanted_setting& setting : wanted) {
    const setting_row& row = *setting.row;
    if (!in_block(row)) continue;
    if (row.read != nullptr) slot = &setting;
    const std::string now = row.read != nullptr ? value_text(row.rule, session_read(row, oltid)) : "unknown";
    changes.emplace_back(row.name, setting.value);
    words +=
        (words.empty() ? "" : ", ") + std::string(row.name) + ": " + now + " -> " + value_text(row.rule, setting.value);
  }
  if (changes.empty()) return;
  blind(where, words, oltid, [&] { return block_change(oltid, changes); });
  if (slot != nullptr && !dry_run_) require_taken(*slot->row, oltid, where, slot->value);
}

void applier::profile_to(const wanted_profile& wanted, uint8_t oltid, const std::string& where) {
  const std::string name = std::string(PROFILE_KINDS[wanted.kind]) + " profile " + std::to_string(wanted.number);
  if (wanted.absent) {
    return blind(where, name + ": unknown -> absent", oltid,
                 [&] { return lineid_vlan_profile_cfg_del(oltid, wanted.kind, wanted.number); });
  }
  blind(where, name + ": unknown -> " + printable(template_alias(wanted.text)), oltid, [&] {
    return lineid_vlan_profile_cfg_add(oltid, wanted.kind, wanted.number, wanted.circuit_template, wanted.text.data(),
                                       static_cast<uint32_t>(wanted.text.size()));
  });
}

void applier::agent(const wanted_state& state) {
  for (const char letter : state.releases) {
    blind("agent: ", std::string("release ") + letter, 0,
          [letter] { return line_id_unoverride_param(0, static_cast<uint8_t>(letter)); });
  }
  for (const wanted_setting& wanted : state.agent) setting_to(wanted, 0, "agent: ");
}

void applier::instance(const wanted_instance& wanted) {
  const std::string where = "instance " + std::to_string(wanted.oltid) + ": ";
  for (const wanted_setting& setting : wanted.settings) {
    if (!in_block(*setting.row)) setting_to(setting, wanted.oltid, where);
  }
  block_to(wanted.settings, wanted.oltid, where);
  for (const wanted_pin& pin : wanted.pins) {
    blind(where, std::string("override ") + pin.letter + ": unknown -> " + printable(pin.text), wanted.oltid, [&] {
      return line_id_override_param(wanted.oltid, static_cast<uint8_t>(pin.letter), pin.text.data(),
                                    static_cast<uint32_t>(pin.text.size()));
    });
  }
  for (const wanted_profile& profile : wanted.profiles) profile_to(profile, wanted.oltid, where);
}

void applier::summary() const {
  output_line(std::to_string(changed_) + (dry_run_ ? " to change, " : " changed, ") + std::to_string(same_) +
              " as wanted, " + std::to_string(sent_) +
              (dry_run_ ? " to send that cannot be read" : " sent that cannot be read"));
}

} // namespace

void apply_state(const wanted_state& state, bool dry_run) {
  session_barrier(0, "agent");
  applier work(dry_run);
  work.agent(state);
  for (const wanted_instance& wanted : state.instances) work.instance(wanted);
  work.summary();
}
