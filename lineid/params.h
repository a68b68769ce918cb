// The parameter table: the current text of every letter, separately for each parameter set.
//
// A set is instance x {DHCPv4, DHCPv6, PPPoE, spare}: 0 to 35. Letters are A to Z and a to z; all else is refused
// before it indexes anything. Device-wide letters live from frame to frame; the others are emptied and written anew for
// each frame; a pinned letter is the operator's until it is released.
//
// The worker, and start-up before the worker runs. There is no lock.
#pragma once

#include "core/device_if.h"
#include "core/records.h"
#include "packet/frame.h"

#include <array>
#include <cstring>
#include <string_view>

constexpr int32_t LINE_ID_ALL_SETS = LINE_ID_PARAM_SETS; // the provider's target at start-up
constexpr uint32_t LINE_ID_PARAM_SLOTS = 60;             // 'A' and the 59 characters behind it
constexpr uint32_t LINE_ID_PARAM_ROW = 64;               // the same, rounded up for the vector unit
constexpr uint32_t LINE_ID_PARAM_LEN = LINE_ID_TEXT_SIZE - 1;
constexpr char LINE_ID_DEVICE_LETTERS[] = "arfOLSuBzH"; // spared by the reset for each frame

enum line_id_param_flag : int8_t {
  PARAM_FREE = 0,   // not set: reverse parsing may fill it, though it may have a text
  PARAM_SET = 1,    // by the agent
  PARAM_PINNED = 2, // by the operator
};

// Lengths of the texts, or that a number is still to be turned into its text: most letters of a frame are numbers, and
// its templates use half of them.
constexpr uint8_t PARAM_NUMBER = 0xFE;
constexpr uint8_t PARAM_MAC = 0xFF;

// The letters of a set, by slot. Written only through the functions below, read through line_id_param_view.
struct alignas(64) line_id_param_set {
  int8_t flag[LINE_ID_PARAM_ROW];
  uint8_t len[LINE_ID_PARAM_ROW];
  uint8_t kept[LINE_ID_PARAM_ROW]; // all ones for what the reset for each frame spares: device-wide and pinned letters
  int64_t number[LINE_ID_PARAM_ROW];
  char* text[LINE_ID_PARAM_SLOTS]; // buffers of LINE_ID_TEXT_SIZE octets, or null
  uint32_t pinned;                 // how many letters are
};
extern line_id_param_set g_params[LINE_ID_PARAM_SETS];

// Room for the text of any number or MAC address.
constexpr uint32_t LINE_ID_SHORT_TEXT_SIZE = 16;

// A provider that can also empty a set and fill it with a frame's letters straight away, without traces: registered
// with that provider, before frames flow. Its result is the provider's.
struct line_id_set_filler {
  line_id_param_provider provider;
  int32_t (*fill)(line_id_param_set& letters, line_id_inf_info* info); // or null
};
extern line_id_set_filler g_line_id_set_filler;

// The set that the provider's write callback fills; 36 means all.
extern uint16_t g_line_id_param_set;

inline bool line_id_is_param_set(int32_t set) { return static_cast<uint32_t>(set) < LINE_ID_PARAM_SETS; }

// The slot of a letter, or -1.
constexpr int32_t line_id_param_slot(int32_t letter) {
  const bool is_letter = (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z');
  return is_letter ? letter - 'A' : -1;
}

// ---- one letter of one set
//
// line_id_init_params and line_id_write_param are declared in include/line_id.h.

// In decimal. 0; -1 set or letter, -113 pinned.
int32_t line_id_write_param_int(int32_t set, int32_t letter, int32_t value, int32_t flag);

// Pin a letter, whatever its flag. 0, or -1 for a set, a letter or an absent text.
int32_t line_id_write_param_force(int32_t set, int32_t letter, const char* text);
int32_t line_id_write_param_int_force(int32_t set, int32_t letter, int32_t value);

// Put a received text into a letter, cut to its buffer; the flag stays. 0, or -1 without memory.
int32_t line_id_fill_param(int32_t set, int32_t slot, std::string_view text);

// The flag alone; the text stays.
void line_id_set_param_flag(int32_t set, int32_t letter, int32_t flag);

// Install a buffer of LINE_ID_TEXT_SIZE octets from malloc or calloc, which the table then owns; the former buffer is
// freed. A refused buffer stays the caller's.
void line_id_set_param(int32_t set, int32_t letter, char* buffer);

// 1 when the slot has a buffer, else 0.
int32_t line_id_param_allocated(int32_t set, int32_t letter);

// The text of a slot, empty when there is none; valid until the letter is written again.
std::string_view line_id_param_text_of_number(int32_t set, int32_t slot);
inline std::string_view line_id_param_view(int32_t set, int32_t slot) {
  const uint8_t len = g_params[set].len[slot];
  return len < PARAM_NUMBER ? std::string_view(g_params[set].text[slot], len) : line_id_param_text_of_number(set, slot);
}

// The text, "" when there is none; valid until the letter is written again.
const char* line_id_get_param_text(int32_t set, int32_t letter);

void line_id_print_param(int32_t set, int32_t letter);

// ---- one set

// Empty the letters of a line: all but the device-wide and the pinned ones.
void line_id_reset_params(int32_t set);

// ---- the device-wide letters of an instance, in its four sets. 0; -9 for an absent MAC or uplink type.

int32_t line_id_set_param_ani(uint8_t oltid, const char* text);
int32_t line_id_set_param_rack_no(uint8_t oltid, int16_t value);
int32_t line_id_set_param_frame_no(uint8_t oltid, int16_t value);
int32_t line_id_set_param_manage_ip(uint8_t oltid, uint32_t address); // host order
int32_t line_id_set_param_corecard_inner_mac(uint8_t oltid, const uint8_t* mac);
int32_t line_id_set_param_uplink_type(uint8_t oltid, const char* text);
int32_t line_id_set_param_hostname(uint8_t oltid, const char* text);

// ---- the provider

// Start-up: create or empty the table, then the provider's pass over all sets. 0 or negative.
int32_t line_id_set_init_param();

// Empty a set and have the provider fill it for a frame: its result, 0 without one, -1 for a bad set. When a hook
// changed the frame's instance or packet type, the sets that belong to these get the letters of the line too.
int32_t line_id_param_proc(int32_t set, line_id_inf_info* info);

// The provider's write callback: into g_line_id_param_set. The length is not used; any flag but 0 counts as 1, so that
// no hook can pin one subscriber's text for all others. Always 0.
int line_id_param_write_inf(int letter, const char* text, int length, int flag);

// ---- the agent's own letters: a set and a letter that are known to be good; a pinned letter stays

// Allocate the buffer of a slot that has none. False without memory.
bool line_id_make_room(char*& text);

inline void line_id_put_number(line_id_param_set& letters, char letter, int32_t value, int8_t flag = PARAM_SET) {
  const int32_t slot = letter - 'A';
  if (letters.flag[slot] >= PARAM_PINNED) return;
  letters.number[slot] = value;
  letters.len[slot] = PARAM_NUMBER;
  letters.flag[slot] = flag;
}
inline int64_t line_id_number_of_mac(const uint8_t* mac) {
  return static_cast<int64_t>(uint64_t{line_id_get_u16(mac)} << 32 | line_id_get_u32(mac + 2));
}
inline void line_id_put_mac(line_id_param_set& letters, char letter, const uint8_t* mac) {
  const int32_t slot = letter - 'A';
  if (letters.flag[slot] >= PARAM_PINNED) return;
  letters.number[slot] = line_id_number_of_mac(mac);
  letters.len[slot] = PARAM_MAC;
  letters.flag[slot] = PARAM_SET;
}
// A text of `len` octets and its terminator, without flag or, when it is empty, length.
inline void line_id_put_marked_text(line_id_param_set& letters, int32_t slot, const char (&text)[LINE_ID_TEXT_SIZE],
                                    size_t len) {
  if (len == 0 || (letters.text[slot] == nullptr && !line_id_make_room(letters.text[slot]))) return;
  if (len < LINE_ID_SHORT_TEXT_SIZE) {
    std::memcpy(letters.text[slot], text, LINE_ID_SHORT_TEXT_SIZE);
  } else {
    std::memcpy(letters.text[slot], text, LINE_ID_TEXT_SIZE);
  }
  letters.len[slot] = static_cast<uint8_t>(len);
}
inline void line_id_put_text(line_id_param_set& letters, char letter, const char (&text)[LINE_ID_TEXT_SIZE],
                             size_t len) {
  const int32_t slot = letter - 'A';
  if (letters.flag[slot] >= PARAM_PINNED) return;
  letters.flag[slot] = PARAM_SET;
  letters.len[slot] = 0;
  line_id_put_marked_text(letters, slot, text, len);
}

// The flags and lengths of letters that are written together, to be stored by the row: letter by letter they are most
// of what a frame's facts cost.
struct line_id_letter_marks {
  std::array<int8_t, LINE_ID_PARAM_ROW> flag = {};
  std::array<uint8_t, LINE_ID_PARAM_ROW> len = {};
  std::array<uint8_t, LINE_ID_PARAM_ROW> others = {}; // all ones for letters that are not among them
};
constexpr line_id_letter_marks line_id_no_marks() {
  line_id_letter_marks marks;
  marks.others.fill(0xFF);
  return marks;
}
constexpr void line_id_mark_letter(line_id_letter_marks& marks, char letter, uint8_t len) {
  const auto slot = static_cast<size_t>(letter - 'A');
  marks.flag[slot] = PARAM_SET;
  marks.len[slot] = len;
  marks.others[slot] = 0;
}
// Empty the letters of a line: all but the device-wide and the pinned ones.
inline void line_id_empty_line_letters(line_id_param_set& letters) {
  for (size_t slot = 0; slot < LINE_ID_PARAM_ROW; ++slot) {
    letters.flag[slot] = static_cast<int8_t>(letters.flag[slot] & static_cast<int8_t>(letters.kept[slot]));
    letters.len[slot] = letters.len[slot] & letters.kept[slot];
  }
}
// The same in a set without pinned letters, and the marks of letters whose numbers and texts are about to follow.
inline void line_id_empty_and_mark(line_id_param_set& letters, const line_id_letter_marks& marks) {
  for (size_t slot = 0; slot < LINE_ID_PARAM_ROW; ++slot) {
    const uint8_t kept = letters.kept[slot] & marks.others[slot];
    letters.flag[slot] = static_cast<int8_t>((letters.flag[slot] & static_cast<int8_t>(kept)) | marks.flag[slot]);
    letters.len[slot] = (letters.len[slot] & kept) | marks.len[slot];
  }
}

// ---- texts of numbers, and of MAC addresses as 12 lower-case hexadecimal digits

// Zeros behind the text, at least one.
struct line_id_short_text {
  char octets[LINE_ID_SHORT_TEXT_SIZE];
  uint32_t len;
};
line_id_short_text line_id_decimal_text(int32_t value);
line_id_short_text line_id_mac_text(const uint8_t* mac);
void line_id_printf_mac(const uint8_t* mac);
