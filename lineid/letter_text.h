// Letters' texts as an expansion puts them one behind the other, by blocks.
//
// The worker. Each call writes a block of LINE_ID_SHORT_TEXT_SIZE octets at most, of which those behind the text mean
// nothing.
#pragma once

#include "lineid/params.h"

#include <array>
#include <cstdint>
#include <cstring>

// Most numbers of a line have up to three digits; their texts stand here with their lengths.
struct line_id_small_number {
  char digits[3];
  uint8_t len;
};
inline constexpr std::array<line_id_small_number, 1000> LINE_ID_SMALL_NUMBERS = [] {
  std::array<line_id_small_number, 1000> texts = {};
  for (size_t number = 0; number < texts.size(); ++number) {
    line_id_small_number& text = texts[number];
    for (size_t unit = number < 10 ? 1 : number < 100 ? 10 : 100; unit > 0; unit /= 10) {
      text.digits[text.len++] = static_cast<char>('0' + number / unit % 10);
    }
  }
  return texts;
}();

// A number below 1000 in decimal: the place behind it.
inline char* line_id_put_small_number(char* to, uint64_t number) {
  const line_id_small_number& text = LINE_ID_SMALL_NUMBERS[static_cast<size_t>(number)];
  std::memcpy(to, &text, sizeof(text));
  return to + text.len;
}
// The same of one with four to six digits; null for others.
char* line_id_put_longer_number(char* to, uint64_t number);

// Put a letter's text at `to` if it is short, as nearly all are: the place behind it. Null for a text that is longer
// than a block, a MAC address, and a number that is negative or above 999,999.
inline char* line_id_put_short_text(const line_id_param_set& letters, uint32_t slot, char* to) {
  const uint32_t len = letters.len[slot];
  if (len == PARAM_NUMBER) [[likely]] {
    const auto number = static_cast<uint64_t>(letters.number[slot]);
    if (number < LINE_ID_SMALL_NUMBERS.size()) [[likely]]
      return line_id_put_small_number(to, number);
    return line_id_put_longer_number(to, number);
  }
  if (len - 1 < LINE_ID_SHORT_TEXT_SIZE) [[likely]] {
    std::memcpy(to, letters.text[slot], LINE_ID_SHORT_TEXT_SIZE);
    return to + len;
  }
  if (len != 0) return nullptr;
  *to = '0';
  return to + 1;
}
