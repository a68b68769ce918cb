// The parameter table: storage, writers, resets, and the calls of the provider.
#include "lineid/params.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/device_if.h"
#include "core/log.h"

line_id_param_set g_params[LINE_ID_PARAM_SETS];
line_id_set_filler g_line_id_set_filler;
uint16_t g_line_id_param_set;

namespace {

constexpr uint8_t PROVIDER_START = 1;
constexpr uint8_t PROVIDER_FRAME = 2;
constexpr size_t BLOCK_LEN = size_t{LINE_ID_PARAM_SETS} * LINE_ID_PARAM_SLOTS * LINE_ID_TEXT_SIZE;

// The buffers that line_id_init_params hands out, all in one; never freed. Buffers outside of it were allocated alone.
char* g_param_block = nullptr;

// All ones for the slots of device-wide letters.
constexpr std::array<uint8_t, LINE_ID_PARAM_ROW> device_slots() {
  std::array<uint8_t, LINE_ID_PARAM_ROW> slots = {};
  for (const char* letter = LINE_ID_DEVICE_LETTERS; *letter != '\0'; ++letter) {
    slots[static_cast<size_t>(*letter - 'A')] = 0xFF;
  }
  return slots;
}
constexpr std::array<uint8_t, LINE_ID_PARAM_ROW> DEVICE_SLOTS = device_slots();

// Warns in the caller's name about a bad set or letter; true when there is one. `gap` stands behind the name.
bool is_refused(const char* function, int line, const char* gap, int32_t set, int32_t letter) {
  const bool good_set = line_id_is_param_set(set);
  if (good_set && line_id_param_slot(letter) >= 0) return false;
  if (line_id_log_enabled(LOG_GENERAL, 1)) {
    line_id_log_trace("[LNID_WARN]", function, line, "%s%s%s err (%d).\r\n", function, gap,
                      good_set ? "param" : "lineid_set", good_set ? letter : set);
  }
  return true;
}

bool is_in_block(const char* buffer) {
  const auto start = reinterpret_cast<uintptr_t>(g_param_block);
  const auto at = reinterpret_cast<uintptr_t>(buffer);
  return g_param_block != nullptr && at >= start && at - start < BLOCK_LEN;
}

// A pinned letter outlives the reset for each frame, as a device-wide one does.
void set_flag(int32_t set, int32_t slot, int32_t flag) {
  line_id_param_set& letters = g_params[set];
  if (letters.flag[slot] >= PARAM_PINNED) --letters.pinned;
  letters.flag[slot] = static_cast<int8_t>(flag);
  if (letters.flag[slot] >= PARAM_PINNED) ++letters.pinned;
  letters.kept[slot] = letters.flag[slot] >= PARAM_PINNED ? 0xFF : DEVICE_SLOTS[static_cast<size_t>(slot)];
}

// The buffer of a slot, allocated when it has none; null without memory.
char* buffer_of(int32_t set, int32_t slot) {
  char*& buffer = g_params[set].text[slot];
  return buffer != nullptr || line_id_make_room(buffer) ? buffer : nullptr;
}

std::string_view view_of(const char* text) { return {text, strnlen(text, LINE_ID_PARAM_LEN)}; }

// Put a text into a slot that has a buffer.
void store_text(int32_t set, int32_t slot, std::string_view text) {
  text = text.substr(0, LINE_ID_PARAM_LEN);
  g_params[set].len[slot] = static_cast<uint8_t>(text.size());
  char* buffer = g_params[set].text[slot];
  std::memmove(buffer, text.data(), text.size());
  std::memset(buffer + text.size(), 0, LINE_ID_TEXT_SIZE - text.size());
}

// Twelve hexadecimal digits.
line_id_short_text mac_digits(uint64_t mac) {
  constexpr char DIGITS[] = "0123456789abcdef";
  line_id_short_text text = {};
  for (text.len = 0; text.len < 12; ++text.len) text.octets[text.len] = DIGITS[mac >> (44 - 4 * text.len) & 0x0F];
  return text;
}

void write_instance(uint8_t oltid, char letter, const char* text) {
  for (int32_t kind = 0; kind < 4; ++kind) line_id_write_param(oltid * 4 + kind, letter, text, PARAM_SET);
}

// Letters pinned in either set stay where they are.
void copy_line_letters(int32_t from, int32_t to) {
  line_id_reset_params(to);
  for (int32_t letter = 'A'; letter <= 'z'; ++letter) {
    const int32_t slot = line_id_param_slot(letter);
    if (slot < 0 || DEVICE_SLOTS[static_cast<size_t>(slot)] != 0) continue;
    const int8_t flag = g_params[from].flag[slot];
    if (g_params[from].text[slot] == nullptr || flag >= PARAM_PINNED) continue;
    const char* text = line_id_get_param_text(from, letter);
    if (flag != PARAM_FREE || text[0] != '\0') line_id_write_param(to, letter, text, flag);
  }
}

// Of a frame that a hook has moved to another instance or packet type: the sets that its identifiers may now be printed
// from still hold another subscriber's letters.
__attribute__((noinline)) void follow_frame(int32_t set, const line_id_inf_info* info) {
  for (const int32_t oltid : {set / 4, int32_t{line_id_info_oltid(info)}}) {
    const int32_t target = line_id_param_set_of(static_cast<uint8_t>(oltid), info->pkt_info_ptr->packet_type);
    if (target != set && line_id_is_param_set(target)) copy_line_letters(set, target);
  }
}

} // namespace

bool line_id_make_room(char*& text) {
  text = static_cast<char*>(std::calloc(1, LINE_ID_TEXT_SIZE));
  return text != nullptr;
}

int32_t line_id_init_params() {
  if (g_param_block == nullptr) g_param_block = static_cast<char*>(std::calloc(1, BLOCK_LEN));
  if (g_param_block == nullptr) {
    LINE_ID_ERROR("line_id_init_params failed(%d).\r\n", LINE_ID_ERR_MALLOC);
    return LINE_ID_ERR_MALLOC;
  }
  char* room = g_param_block;
  for (line_id_param_set& letters : g_params) {
    for (char*& buffer : letters.text) {
      if (buffer == nullptr) buffer = room;
      std::memset(buffer, 0, LINE_ID_TEXT_SIZE);
      room += LINE_ID_TEXT_SIZE;
    }
    std::memset(letters.len, 0, sizeof(letters.len));
    std::memset(letters.flag, PARAM_FREE, sizeof(letters.flag));
    letters.pinned = 0;
    std::memcpy(letters.kept, DEVICE_SLOTS.data(), sizeof(letters.kept));
  }
  return LINE_ID_OK;
}

int32_t line_id_write_param(int32_t set, int32_t letter, const char* text, int32_t flag) {
  if (is_refused(__func__, __LINE__, "  ", set, letter)) {
    return line_id_is_param_set(set) ? LINE_ID_ERR_PARAM_WRITE : LINE_ID_ERR;
  }
  const int32_t slot = line_id_param_slot(letter);
  if (g_params[set].flag[slot] >= PARAM_PINNED) {
    // ODD: a pinned letter is reported in the words of a bad set.
    LINE_ID_WARN(LOG_GENERAL, "line_id_write_param  lineid_set err (%d).\r\n", LINE_ID_ERR_PARAM_WRITE);
    return LINE_ID_ERR_PARAM_WRITE;
  }
  if (text == nullptr) {
    LINE_ID_ERROR("line_id_write_param  param_data == NULL (%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  if (buffer_of(set, slot) == nullptr) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_write_param  g_lineid_params[lineid_set][param - 'A'] == NULL (%d).\r\n",
                 LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  store_text(set, slot, view_of(text));
  set_flag(set, slot, flag);
  return LINE_ID_OK;
}

int32_t line_id_write_param_int(int32_t set, int32_t letter, int32_t value, int32_t flag) {
  // ODD: a bad letter is -1 here and -113 when a text is written.
  if (is_refused(__func__, __LINE__, "  ", set, letter)) return LINE_ID_ERR;
  if (g_params[set].flag[line_id_param_slot(letter)] >= PARAM_PINNED) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_write_param_int  g_params_flag err ret (%d).\r\n", LINE_ID_ERR_PARAM_WRITE);
    return LINE_ID_ERR_PARAM_WRITE;
  }
  return line_id_write_param(set, letter, line_id_decimal_text(value).octets, flag);
}

int32_t line_id_write_param_force(int32_t set, int32_t letter, const char* text) {
  if (is_refused(__func__, __LINE__, "  ", set, letter)) return LINE_ID_ERR;
  if (text == nullptr) {
    LINE_ID_ERROR("line_id_write_param_force  param_data == NULL.\r\n");
    return LINE_ID_ERR;
  }
  const int32_t slot = line_id_param_slot(letter);
  if (buffer_of(set, slot) == nullptr) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_write_param_force  g_lineid_params == NULL.\r");
    return LINE_ID_ERR;
  }
  store_text(set, slot, view_of(text));
  set_flag(set, slot, PARAM_PINNED);
  return LINE_ID_OK;
}

int32_t line_id_write_param_int_force(int32_t set, int32_t letter, int32_t value) {
  if (is_refused(__func__, __LINE__, "  ", set, letter)) return LINE_ID_ERR;
  return line_id_write_param_force(set, letter, line_id_decimal_text(value).octets);
}

void line_id_set_param_flag(int32_t set, int32_t letter, int32_t flag) {
  if (is_refused(__func__, __LINE__, " ", set, letter)) return;
  const int32_t slot = line_id_param_slot(letter);
  set_flag(set, slot, flag);
}

int32_t line_id_fill_param(int32_t set, int32_t slot, std::string_view text) {
  if (buffer_of(set, slot) == nullptr) return LINE_ID_ERR;
  store_text(set, slot, text.substr(0, text.find('\0')));
  return LINE_ID_OK;
}

void line_id_set_param(int32_t set, int32_t letter, char* buffer) {
  if (is_refused(__func__, __LINE__, " ", set, letter)) return;
  const int32_t slot = line_id_param_slot(letter);
  char*& slot_buffer = g_params[set].text[slot];
  if (slot_buffer == buffer) return;
  if (!is_in_block(slot_buffer)) std::free(slot_buffer);
  slot_buffer = buffer;
  g_params[set].len[slot] = 0;
  if (buffer != nullptr) store_text(set, slot, view_of(buffer));
}

int32_t line_id_param_allocated(int32_t set, int32_t letter) {
  const int32_t slot = line_id_param_slot(letter);
  return line_id_is_param_set(set) && slot >= 0 && g_params[set].text[slot] != nullptr ? 1 : 0;
}

std::string_view line_id_param_text_of_number(int32_t set, int32_t slot) {
  const uint8_t kind = g_params[set].len[slot];
  const int64_t number = g_params[set].number[slot];
  g_params[set].len[slot] = 0;
  char* buffer = buffer_of(set, slot);
  if (buffer == nullptr) return {};
  const line_id_short_text text = kind == PARAM_MAC ? mac_digits(static_cast<uint64_t>(number))
                                                    : line_id_decimal_text(static_cast<int32_t>(number));
  std::memcpy(buffer, text.octets, sizeof(text.octets));
  g_params[set].len[slot] = static_cast<uint8_t>(text.len);
  return {buffer, text.len};
}

const char* line_id_get_param_text(int32_t set, int32_t letter) {
  if (line_id_param_allocated(set, letter) == 0) return "";
  const std::string_view text = line_id_param_view(set, line_id_param_slot(letter));
  return text.empty() ? "" : text.data();
}

void line_id_print_param(int32_t set, int32_t letter) {
  if (!line_id_is_param_set(set)) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_print_param lineid_set (%d).\r\n", set);
    return;
  }
  if (line_id_param_slot(letter) < 0) return;
  std::printf("%c: %.*s\r\n", static_cast<char>(letter), static_cast<int>(LINE_ID_PARAM_LEN),
              line_id_get_param_text(set, letter));
}

void line_id_reset_params(int32_t set) {
  if (!line_id_is_param_set(set)) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_reset_params lineid_set err (%d).\r\n", set);
    return;
  }
  line_id_empty_line_letters(g_params[set]);
}

int32_t line_id_set_param_ani(uint8_t oltid, const char* text) {
  if (text != nullptr) write_instance(oltid, 'a', text);
  return LINE_ID_OK;
}

int32_t line_id_set_param_rack_no(uint8_t oltid, int16_t value) {
  // ODD: a number of 32768 or more prints negative.
  write_instance(oltid, 'r', line_id_decimal_text(value).octets);
  return LINE_ID_OK;
}

int32_t line_id_set_param_frame_no(uint8_t oltid, int16_t value) {
  write_instance(oltid, 'f', line_id_decimal_text(value).octets);
  return LINE_ID_OK;
}

int32_t line_id_set_param_manage_ip(uint8_t oltid, uint32_t address) {
  char text[16] = {};
  std::snprintf(text, sizeof(text), "%u.%u.%u.%u", address >> 24, address >> 16 & 0xFFU, address >> 8 & 0xFFU,
                address & 0xFFU);
  write_instance(oltid, 'O', text);
  return LINE_ID_OK;
}

int32_t line_id_set_param_corecard_inner_mac(uint8_t oltid, const uint8_t* mac) {
  if (mac == nullptr) {
    LINE_ID_ERROR("mac is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  write_instance(oltid, 'z', line_id_mac_text(mac).octets);
  return LINE_ID_OK;
}

int32_t line_id_set_param_uplink_type(uint8_t oltid, const char* text) {
  if (text == nullptr) {
    LINE_ID_ERROR("uplink_type is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  write_instance(oltid, 'u', text);
  return LINE_ID_OK;
}

int32_t line_id_set_param_hostname(uint8_t oltid, const char* text) {
  if (text != nullptr) write_instance(oltid, 'H', text);
  return LINE_ID_OK;
}

int32_t line_id_set_init_param() {
  if (const int32_t ret = line_id_init_params(); ret != LINE_ID_OK) return ret;
  if (g_device_if.param_provider == nullptr) return LINE_ID_OK;
  g_line_id_param_set = static_cast<uint16_t>(LINE_ID_ALL_SETS);
  return g_device_if.param_provider(PROVIDER_START, line_id_param_write_inf, nullptr);
}

int32_t line_id_param_proc(int32_t set, line_id_inf_info* info) {
  if (!line_id_is_param_set(set)) { // 36 would write every subscriber's set
    line_id_reset_params(set);      // says so
    return LINE_ID_ERR;
  }
  g_line_id_param_set = static_cast<uint16_t>(set);
  const bool has_frame = info != nullptr && info->pkt_info_ptr != nullptr;
  int32_t ret = LINE_ID_OK;
  const line_id_set_filler& filler = g_line_id_set_filler;
  if (filler.fill != nullptr && filler.provider == g_device_if.param_provider && has_frame && !line_id_traces_on()) {
    ret = filler.fill(g_params[set], info);
  } else {
    line_id_empty_line_letters(g_params[set]);
    if (g_device_if.param_provider == nullptr) return LINE_ID_OK;
    ret = g_device_if.param_provider(PROVIDER_FRAME, line_id_param_write_inf, info);
  }
  if (ret != LINE_ID_OK || !has_frame) return ret;
  const bool has_moved = info->pkt_info_ptr->packet_type - 1 != set % 4 || line_id_info_oltid(info) != set / 4;
  if (has_moved) follow_frame(set, info);
  return ret;
}

int line_id_param_write_inf(int letter, const char* text, int, int flag) {
  const bool all = g_line_id_param_set == LINE_ID_ALL_SETS;
  const int32_t first = all ? 0 : g_line_id_param_set;
  const int32_t last = all ? LINE_ID_ALL_SETS - 1 : first;
  for (int32_t set = first; set <= last; ++set) {
    line_id_write_param(set, letter, text, flag != PARAM_FREE ? PARAM_SET : PARAM_FREE);
  }
  return LINE_ID_OK;
}

line_id_short_text line_id_decimal_text(int32_t value) {
  line_id_short_text text = {};
  text.len =
      static_cast<uint32_t>(std::to_chars(text.octets, text.octets + sizeof(text.octets) - 1, value).ptr - text.octets);
  return text;
}

line_id_short_text line_id_mac_text(const uint8_t* mac) {
  return mac_digits(static_cast<uint64_t>(line_id_number_of_mac(mac)));
}

void line_id_printf_mac(const uint8_t* mac) { std::fputs(line_id_mac_text(mac).octets, stdout); }
