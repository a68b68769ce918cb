// The parameter provider: asks the host's callbacks for device and line facts and writes them as letters.
#include <bit>
#include <cstddef>
#include <cstring>

#include "core/log.h"
#include "lineid/hal.h"
#include "lineid/params.h"

namespace {

constexpr uint8_t MODE_START = 1;
constexpr uint8_t MODE_FRAME = 2;

// A text of the agent's own.
struct known_text {
  char text[LINE_ID_TEXT_SIZE];
  size_t len;
};

struct tech_form {
  uint8_t form;
  bool is_kept;    // in the line information; the others leave it as it was
  known_text name; // letter F
};
constexpr tech_form TECH_FORMS[] = {
    {LINE_ID_FORM_GP, true, {"GP", 2}}, {LINE_ID_FORM_EP, false, {"EP", 2}},  {LINE_ID_FORM_XE, false, {"XE", 2}},
    {LINE_ID_FORM_XG, true, {"XG", 2}}, {LINE_ID_FORM_XGS, true, {"XGS", 3}}, {LINE_ID_FORM_NONE, false, {"", 0}},
};
constexpr known_text NO_TEXT = {"", 0};
constexpr known_text ATM_TEXT = {"atm", 3}; // letter t
constexpr known_text ETH_TEXT = {"eth", 3};

void write_text(line_id_param_write_func write, char letter, const char* text, int flag = PARAM_SET) {
  write(letter, text, static_cast<int>(std::strlen(text)), flag);
}

void write_text(line_id_param_write_func write, char letter, const known_text& known) {
  write(letter, known.text, static_cast<int>(known.len), PARAM_SET);
}

void write_int(line_id_param_write_func write, char letter, int32_t value, int flag = PARAM_SET) {
  write_text(write, letter, line_id_decimal_text(value).octets, flag);
}

void write_mac(line_id_param_write_func write, char letter, const uint8_t* mac) {
  write_text(write, letter, line_id_mac_text(mac).octets);
}

// Most texts of a line have a few characters, if any: no call for them.
size_t length_of(const char (&text)[LINE_ID_TEXT_SIZE]) {
  if (text[0] == '\0') return 0;
  if constexpr (std::endian::native == std::endian::little) {
    constexpr uint64_t ONES = 0x0101010101010101;
    uint64_t first = 0;
    std::memcpy(&first, text, sizeof(first));
    const uint64_t zeros = (first - ONES) & ~first & (ONES << 7); // exact up to the first of them
    if (zeros != 0) return static_cast<size_t>(std::countr_zero(zeros)) / 8;
  }
  return std::strlen(text);
}

// The parameter table's own callback, for the one set of a frame, is spared the way over terminated texts.
struct own_set {
  line_id_param_set& letters;
};
void write_text(own_set own, char letter, const char (&text)[LINE_ID_TEXT_SIZE]) {
  line_id_put_text(own.letters, letter, text, length_of(text));
}
void write_text(own_set own, char letter, const known_text& known) {
  line_id_put_text(own.letters, letter, known.text, known.len);
}
void write_int(own_set own, char letter, int32_t value, int8_t flag = PARAM_SET) {
  line_id_put_number(own.letters, letter, value, flag);
}
void write_mac(own_set own, char letter, const uint8_t* mac) { line_id_put_mac(own.letters, letter, mac); }

// The same without pinned letters, whose marks stand there already.
struct marked_set {
  line_id_param_set& letters;
};
void write_text(marked_set own, char letter, const char (&text)[LINE_ID_TEXT_SIZE]) {
  line_id_put_marked_text(own.letters, letter - 'A', text, length_of(text));
}
void write_text(marked_set own, char letter, const known_text& known) {
  line_id_put_marked_text(own.letters, letter - 'A', known.text, known.len);
}
void write_int(marked_set own, char letter, int32_t value) { own.letters.number[letter - 'A'] = value; }
void write_int(marked_set own, char letter, int32_t value, int8_t flag) {
  line_id_put_number(own.letters, letter, value, flag);
}
void write_mac(marked_set own, char letter, const uint8_t* mac) {
  own.letters.number[letter - 'A'] = line_id_number_of_mac(mac);
}

// Finds out at compile time which letters there are to mark.
struct mark_recorder {
  line_id_letter_marks& marks;
};
template <class Text> constexpr void write_text(mark_recorder own, char letter, const Text&) {
  line_id_mark_letter(own.marks, letter, 0);
}
constexpr void write_int(mark_recorder own, char letter, int32_t) {
  line_id_mark_letter(own.marks, letter, PARAM_NUMBER);
}
constexpr void write_int(mark_recorder, char, int32_t, int8_t) {} // with a flag of its own: not among them
constexpr void write_mac(mark_recorder own, char letter, const uint8_t*) {
  line_id_mark_letter(own.marks, letter, PARAM_MAC);
}

int32_t write_type_name(line_id_param_write_func write, char letter, int (*get_name)(char*, uint32_t)) {
  if (get_name == nullptr) return LINE_ID_OK;
  char name[LINE_ID_TEXT_SIZE] = {};
  if (get_name(name, sizeof(name)) != 0) return LINE_ID_ERR;
  name[LINE_ID_PARAM_LEN] = '\0';
  write_text(write, letter, name);
  return LINE_ID_OK;
}

int32_t write_device_names(line_id_param_write_func write) {
  const line_id_hal_func_table& hal = g_hal_func_obj;
  LINE_ID_INFO(LOG_DEVICE, "get_access_typename param info: \r");
  if (write_type_name(write, 'B', hal.get_access_typename) != LINE_ID_OK) return LINE_ID_ERR;
  LINE_ID_INFO(LOG_DEVICE, "get_card_typename param info: \r");
  if (write_type_name(write, 'L', hal.get_card_typename) != LINE_ID_OK) return LINE_ID_ERR;
  LINE_ID_INFO(LOG_DEVICE, "get_olt_card_slot_info param info: \r");
  if (hal.get_olt_card_slot_info == nullptr) return LINE_ID_OK;
  uint16_t slot = 0;
  if (hal.get_olt_card_slot_info(&slot) != 0) return LINE_ID_ERR;
  write_int(write, 'S', slot);
  return LINE_ID_OK;
}

int32_t line_id_write_perm_info_param(line_id_param_write_func write) {
  const int32_t ret = write_device_names(write);
  if (ret != LINE_ID_OK) LINE_ID_WARN(LOG_DEVICE, "line_id_write_perm_info_param failed(%d).\r\n", ret);
  return ret;
}

template <uint8_t log> int32_t get_slots(uint16_t& olt_slot, line_id_inf_info* info) {
  const line_id_hal_func_table& hal = g_hal_func_obj;
  if (hal.get_olt_card_slot_info != nullptr) {
    const int ret = hal.get_olt_card_slot_info(&olt_slot);
    if (ret != 0 || olt_slot == 0) {
      LINE_ID_WARN(log, "get_olt_card_slot_info,ret(%d), failed(%d).\r\n", ret, LINE_ID_ERR);
      LINE_ID_WARN(log, "olt_slot=%d.\r\n", olt_slot);
      return LINE_ID_ERR;
    }
  }
  uint16_t slot = 0;
  uint16_t sub_slot = 0;
  if (hal.get_onu_card_slot_info != nullptr) {
    const int ret = hal.get_onu_card_slot_info(&slot, &sub_slot);
    if (ret != 0 || slot == 0 || sub_slot == 0) {
      LINE_ID_WARN(log, "get_onu_card_slot_info,ret(%d), failed(%d).\r\n", ret, LINE_ID_ERR);
      LINE_ID_WARN(log, "onu_slot=%d,onu_sub_slot=%d.\r\n", slot, sub_slot);
      return LINE_ID_ERR;
    }
  }
  info->olt_slot = static_cast<uint8_t>(olt_slot);
  info->onu_slot = slot;
  info->onu_sub_slot = sub_slot;
  return LINE_ID_OK;
}

// The place of the frame and the ONU's identification, as far as it is known; all behind them is the answer's.
void ask_for_registration(line_id_onu_reg_info& reg, const line_id_pkt_info* pkt) {
  constexpr size_t ANSWER = offsetof(line_id_onu_reg_info, onu_id) + sizeof(reg.onu_id);
  reg.onu_auth = pkt->onu_authno;
  reg.onu_ponno = pkt->onu_ponno;
  std::memset(reinterpret_cast<char*>(&reg) + ANSWER, 0, sizeof(reg) - ANSWER);
}

// The ONU's registration; it may correct the frame's ONU and PON numbers. What a host that fails has left is not kept.
template <uint8_t log> int32_t line_id_write_onu_register_info_param(line_id_inf_info* info) {
  line_id_pkt_info* pkt = info->pkt_info_ptr;
  // The host fills the frame's own record: copying it afterwards would have to wait for what it has just written.
  line_id_onu_reg_info& reg = info->onu;
  ask_for_registration(reg, pkt);
  LINE_ID_INFO(log, "onu_auth before=%d.onu_ponno before =%d,onu_id before =%s\r\n", reg.onu_auth, reg.onu_ponno,
               reg.onu_id);
  if (const int ret = g_hal_func_obj.get_onu_reg_info_by_optional_elem(&reg); ret != 0) {
    reg = {};
    return ret;
  }
  for (char* text : {reg.onu_id, reg.onu_text_n, reg.onu_text_c}) text[LINE_ID_PARAM_LEN] = '\0';
  pkt->onu_authno = reg.onu_auth;
  pkt->onu_ponno = reg.onu_ponno;
  LINE_ID_INFO(log, "onu_auth after = %d, onu_ponno after = %d, onu_id after = %s, onu_rpc_ponno = %d\r\n",
               reg.onu_auth, reg.onu_ponno, reg.onu_id, reg.onu_rpc_ponno);
  LINE_ID_INFO(log, "onu_losn_valid_or_invalid = %d.\r\n", reg.onu_losn_valid_or_invalid);
  return LINE_ID_OK;
}

// The technology with its text, null without the callback. 0, -1, or -14 for an unknown form.
template <uint8_t log> int32_t get_tech_text(const tech_form*& found, line_id_inf_info* info) {
  found = nullptr;
  const auto get_form = g_hal_func_obj.get_access_device_tech_form;
  if (get_form == nullptr) return LINE_ID_OK;
  const line_id_pkt_info* pkt = info->pkt_info_ptr;
  uint8_t form = 0;
  const int ret = get_form(pkt->onu_ponno, pkt->onu_authno, &form);
  if (ret != 0) {
    LINE_ID_WARN(log, "get_access_device_tech_form ,ret(%d), failed(%d).\r\n", ret, LINE_ID_ERR);
    return LINE_ID_ERR;
  }
  for (const tech_form& row : TECH_FORMS) {
    if (row.form != form) continue;
    found = &row;
    if (!row.is_kept) return LINE_ID_OK;
    info->form = form;
    LINE_ID_INFO(log, "inf_info_ptr->form = %d.\r\n", info->form);
    return LINE_ID_OK;
  }
  LINE_ID_WARN(log, "get_access_device_tech_form ,ret(%d), failed(%d).\r\n", ret, LINE_ID_ERR_TECH_NORMS);
  return LINE_ID_ERR_TECH_NORMS;
}

int32_t line_id_write_onu_port_info_param(line_id_inf_info* info) {
  line_id_onu_port_info port = {};
  const int ret = g_hal_func_obj.get_onu_port_info_by_logic_port(info->pkt_info_ptr->onu_portid, &port);
  if (ret == 0) info->port = port;
  return ret;
}

template <uint8_t log> int32_t get_port(line_id_inf_info* info) {
  if (g_hal_func_obj.get_onu_port_info_by_logic_port == nullptr) return LINE_ID_OK;
  if (const int32_t ret = line_id_write_onu_port_info_param(info); ret != 0) {
    LINE_ID_WARN(log, "line_id_write_onu_port_info_param ,ret_val(%d), failed(%d).\r\n", ret, LINE_ID_ERR);
    return LINE_ID_ERR;
  }
  if (info->port.port_type == LINE_ID_PORT_ATM || info->port.port_type == LINE_ID_PORT_ETH) return LINE_ID_OK;
  LINE_ID_WARN(log, "invalid port type ,failed(%d).\r\n", LINE_ID_ERR);
  return LINE_ID_ERR;
}

template <class Writer> void write_port_letters(Writer write, const line_id_inf_info* info) {
  if (g_hal_func_obj.get_onu_port_info_by_logic_port == nullptr) return;
  const bool is_atm = info->port.port_type == LINE_ID_PORT_ATM;
  write_text(write, 't', is_atm ? ATM_TEXT : ETH_TEXT);
  write_int(write, 'X', is_atm ? info->port.circuit_x : info->pkt_info_ptr->svlan);
  write_int(write, 'x', is_atm ? info->port.circuit_y : info->pkt_info_ptr->cvlan);
}

// What the callbacks say of a frame's line, beside what they put into its record.
struct line_facts {
  uint16_t olt_slot;
  const tech_form* tech;
};

template <class Writer>
constexpr void write_line_letters(Writer write, const line_id_inf_info* info, const line_facts& facts) {
  const line_id_pkt_info* pkt = info->pkt_info_ptr;
  // ODD: the port's number replaces the second coordinate that was just written, "0" when nobody filled it.
  write_int(write, 'x', info->port.number[0] << 8 | info->port.number[1]);
  write_int(write, 's', pkt->svlan);
  write_int(write, 'c', pkt->cvlan);
  write_int(write, 'S', facts.olt_slot);
  write_int(write, 'T', info->onu_slot);
  write_int(write, 'M', info->onu_sub_slot);
  write_text(write, 'F', facts.tech != nullptr ? facts.tech->name : NO_TEXT);
  write_mac(write, 'h', info->client_mac);
  // ODD: the port number has a text, yet counts as not set, so that a received identifier may replace it.
  if (pkt->onu_portid != 0) write_int(write, 'P', pkt->onu_portid, PARAM_FREE);
  write_int(write, 'o', pkt->onu_authno);
  write_int(write, 'p', info->onu.onu_rpc_ponno);
  write_int(write, 'g', pkt->onu_gemid);
  write_text(write, 'n', info->onu.onu_text_n);
  write_text(write, 'm', info->onu.onu_id);
  write_text(write, 'C', info->onu.onu_text_c);
}

constexpr line_id_letter_marks LINE_MARKS = [] {
  line_id_letter_marks marks = line_id_no_marks();
  line_id_pkt_info pkt = {};
  line_id_inf_info info = {};
  info.pkt_info_ptr = &pkt;
  write_line_letters(mark_recorder{marks}, &info, {});
  return marks;
}();

template <uint8_t log> int32_t get_facts(line_facts& facts, line_id_inf_info* info) {
  facts = {};
  if (get_slots<log>(facts.olt_slot, info) != LINE_ID_OK) return LINE_ID_ERR;
  if (g_hal_func_obj.get_onu_reg_info_by_optional_elem != nullptr) {
    if (const int32_t ret = line_id_write_onu_register_info_param<log>(info); ret != LINE_ID_OK) {
      LINE_ID_WARN(log, "line_id_write_onu_register_info_param ,ret_val(%d), failed(%d).\r\n", ret, LINE_ID_ERR);
      return LINE_ID_ERR;
    }
  }
  const int32_t ret = get_tech_text<log>(facts.tech, info);
  return ret == LINE_ID_OK ? get_port<log>(info) : ret;
}

template <class Writer> void write_letters(Writer write, const line_id_inf_info* info, const line_facts& facts) {
  write_port_letters(write, info);
  write_line_letters(write, info, facts);
}

// Into a set that is emptied for it.
void write_letters_anew(line_id_param_set& letters, const line_id_inf_info* info, const line_facts& facts) {
  const own_set own = {letters};
  if (letters.pinned != 0) {
    line_id_empty_line_letters(letters);
    return write_letters(own, info, facts);
  }
  line_id_empty_and_mark(letters, LINE_MARKS);
  write_port_letters(own, info);
  write_line_letters(marked_set{letters}, info, facts);
}

// The host's hook sees, and may change, the frame's facts; at start-up a zeroed record.
__attribute__((noinline)) int32_t call_hook(line_id_param_custom_func hook, uint8_t mode,
                                            line_id_param_write_func write, line_id_inf_info* info) {
  line_id_pkt_property property = {};
  int32_t ret = info != nullptr ? line_id_get_pkt_propety_by_inf_info(&property, info) : LINE_ID_OK;
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(LOG_DEVICE, "line_id_get_pkt_propety_by_inf_info ,ret(%d), failed(%d).\r\n", ret, LINE_ID_ERR);
    return LINE_ID_ERR;
  }
  ret = hook(mode, write, &property);
  if (ret != 0) {
    LINE_ID_WARN(LOG_DEVICE, "g_line_id_hal_param_custom_if ,ret(%d), failed(%d).\r\n", ret, LINE_ID_ERR);
    return LINE_ID_ERR;
  }
  if (info == nullptr) return LINE_ID_OK;
  ret = line_id_set_inf_info_by_pkt_propety(&property, info);
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(LOG_DEVICE, "line_id_set_inf_info_by_pkt_propety ,ret(%d), failed(%d).\r\n", ret, LINE_ID_ERR);
    return LINE_ID_ERR;
  }
  line_id_take_vlan_profiles(info);
  return LINE_ID_OK;
}

} // namespace

void line_id_take_vlan_profiles(line_id_inf_info* info) {
  const line_id_pkt_info* pkt = info->pkt_info_ptr;
  // For DHCPv6 these octets are left over from the unit's previous frame.
  const bool counts = pkt->packet_type != LINE_ID_DHCPV6;
  const auto profile = [pkt, counts](uint32_t at) {
    const uint8_t number = pkt->reserved[at];
    return counts && number <= LINE_ID_VLAN_PROFILES ? number : uint8_t{0};
  };
  info->profile_flag = counts ? pkt->reserved[LINE_ID_EXT_PROFILE_FLAG] : uint8_t{0};
  info->cid = profile(LINE_ID_EXT_CID);
  info->rid = profile(LINE_ID_EXT_RID);
}

int32_t line_id_hal_param_func(uint8_t mode, line_id_param_write_func write, line_id_inf_info* info) {
  const bool is_start = mode == MODE_START;
  const bool has_frame = info != nullptr && info->pkt_info_ptr != nullptr;
  if (!line_id_hal_is_registered() || write == nullptr || (mode == MODE_FRAME && !has_frame)) {
    LINE_ID_WARN(LOG_DEVICE, "line_id_hal_param_func failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  if (is_start) {
    if (const int32_t ret = line_id_write_perm_info_param(write); ret != LINE_ID_OK) {
      LINE_ID_WARN(LOG_DEVICE, "line_id_hal_param_func ,ret_val(%d), failed(%d).\r\n", ret, LINE_ID_ERR);
      return LINE_ID_ERR;
    }
  } else if (mode == MODE_FRAME) {
    line_facts facts;
    if (const int32_t ret = get_facts<LOG_DEVICE>(facts, info); ret != LINE_ID_OK) return ret;
    if (write == line_id_param_write_inf && line_id_is_param_set(g_line_id_param_set)) {
      write_letters(own_set{g_params[g_line_id_param_set]}, info, facts);
    } else {
      write_letters(write, info, facts);
    }
  }
  const line_id_param_custom_func hook = g_line_id_hal_param_custom_if.load(std::memory_order_acquire);
  return hook == nullptr ? LINE_ID_OK : call_hook(hook, mode, write, is_start ? nullptr : info);
}

LINE_ID_FLAT int32_t line_id_hal_fill_set(line_id_param_set& letters, line_id_inf_info* info) {
  line_facts facts;
  if (const int32_t ret = get_facts<LOG_NONE>(facts, info); ret != LINE_ID_OK) {
    line_id_empty_line_letters(letters);
    return ret;
  }
  write_letters_anew(letters, info, facts);
  const line_id_param_custom_func hook = g_line_id_hal_param_custom_if.load(std::memory_order_acquire);
  return hook == nullptr ? LINE_ID_OK : call_hook(hook, MODE_FRAME, line_id_param_write_inf, info);
}
