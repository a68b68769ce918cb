// The built-in templates' expansion: code for each of them, so that literals and places of letters are known to the
// compiler.
#include "lineid/format.h"

#include <array>
#include <cstring>
#include <utility>

#include "lineid/letter_text.h"

namespace {

constexpr int32_t NOT_SHORT = -1;
constexpr uint32_t BLOCK_LEN = LINE_ID_SHORT_TEXT_SIZE;
constexpr int32_t NO_LETTER = -1;

// Octets of the template, then a letter or NO_LETTER.
struct piece {
  size_t at;
  size_t len;
  int32_t slot;
  uint32_t most; // octets that the text may have in front of it, while all letters are short
};
struct piece_list {
  std::array<piece, 32> at;
  size_t count;
};

constexpr piece_list take_apart(std::string_view fmt) {
  piece_list list = {};
  uint32_t most = 0;
  for (size_t pos = 0; pos < fmt.size();) {
    const size_t percent = std::min(fmt.find('%', pos), fmt.size());
    const bool has_letter = percent < fmt.size();
    list.at[list.count++] = {pos, percent - pos, has_letter ? line_id_param_slot(fmt[percent + 1]) : NO_LETTER, most};
    most += static_cast<uint32_t>(percent - pos) + (has_letter ? BLOCK_LEN : 0);
    pos = percent + (has_letter ? 2 : 0);
  }
  return list;
}

template <uint32_t number> constexpr piece_list PIECES = take_apart(line_id_standard_template(number));

// False when the letter is not short, or a block more might not fit.
template <uint32_t number, size_t i>
inline bool put_piece(const line_id_param_set& letters, const char* out, char*& to) {
  constexpr piece it = PIECES<number>.at[i];
  constexpr uint32_t roomy = LINE_ID_EXPANSION_LEN - BLOCK_LEN - it.len;
  if (it.most > roomy && static_cast<uint32_t>(to - out) > roomy) return false;
  std::memcpy(to, line_id_standard_template(number).data() + it.at, it.len);
  to += it.len;
  if (it.slot == NO_LETTER) return true;
  to = line_id_put_short_text(letters, static_cast<uint32_t>(it.slot), to);
  return to != nullptr;
}

// Octets written, with zeros behind them, or NOT_SHORT.
template <uint32_t number> int32_t expand(const line_id_param_set& letters, char* out) {
  char* to = out;
  const auto put_pieces = [&]<size_t... i>(std::index_sequence<i...>) {
    return (put_piece<number, i>(letters, out, to) && ...);
  };
  if (!put_pieces(std::make_index_sequence<PIECES<number>.count>{})) return NOT_SHORT;
  if (static_cast<size_t>(to - out) > LINE_ID_EXPANSION_LEN - BLOCK_LEN) return NOT_SHORT;
  std::memset(to, 0, BLOCK_LEN);
  return static_cast<int32_t>(to - out);
}

using expander = int32_t (*)(const line_id_param_set& letters, char* out);
template <uint32_t... number>
constexpr std::array<expander, sizeof...(number)> expanders_of(std::integer_sequence<uint32_t, number...>) {
  return {expand<number>...};
}
constexpr auto EXPANDERS = expanders_of(std::make_integer_sequence<uint32_t, LINE_ID_STANDARDS>{});

} // namespace

int32_t line_id_expand_standard_untraced(const line_id_param_set& letters, uint32_t number, char* out) {
  const int32_t len = EXPANDERS[number](letters, out);
  // What was written so far is what the template starts with.
  return len != NOT_SHORT ? len : line_id_expand_untraced(letters, line_id_standard_template(number), out);
}
