// Templates: check, expansion, reverse parsing, space alias.
#include "lineid/format.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "core/log.h"
#include "lineid/letter_text.h"
#include "lineid/params.h"

namespace {

// The terminator that the literal carries counts too.
constexpr std::string_view DELIMITERS(" ./:;[]{}<>()-_", sizeof(" ./:;[]{}<>()-_"));

char char_at(std::string_view text, size_t pos) { return pos < text.size() ? text[pos] : '\0'; }

int32_t parse_failed(const char* function, int line) {
  if (line_id_log_enabled(LOG_GENERAL, 1)) {
    line_id_log_trace("[LNID_WARN]", function, line, "%s err (%d).\r\n", function, LINE_ID_ERR_PARSE);
  }
  return LINE_ID_ERR_PARSE;
}

// Put a received text into a letter. 0, or -1 without memory.
int32_t fill_letter(int32_t set, int32_t slot, std::string_view text) {
  if (line_id_fill_param(set, slot, text) == LINE_ID_OK) return LINE_ID_OK;
  std::printf("Unable to allocate memory : %s\r\n", "line_id_parse_params");
  return LINE_ID_ERR;
}

// The digits of a number behind a thousand, and a zero.
using three_digits = std::array<char, 4>;
constexpr std::array<three_digits, 1000> THREE_DIGITS = [] {
  std::array<three_digits, 1000> texts = {};
  for (size_t number = 0; number < texts.size(); ++number) {
    for (size_t at = 0, unit = 100; unit > 0; unit /= 10) {
      texts[number][at++] = static_cast<char>('0' + number / unit % 10);
    }
  }
  return texts;
}();

// ---- expansion: a template is taken apart once, and its steps are remembered with a copy of it

// One step of an expansion: octets of the template, then a letter.
struct template_step {
  uint16_t at;
  uint8_t len; // of octets, at most BLOCK_LEN
  uint8_t letter;
};
constexpr uint8_t NO_LETTER = 0xFD; // octets alone, as far as there is room
constexpr uint8_t PAIR_ONLY = 0xFE; // "%" and what follows it, both or neither
constexpr uint8_t AT_END = 0xFF;    // behind the last step; what is below the three is a letter's slot

// No template expands further than this: each of its steps writes an octet at least, and has two at most for that.
constexpr uint32_t TEMPLATE_LEN = 2 * LINE_ID_EXPANSION_LEN;
constexpr uint32_t BLOCK_LEN = LINE_ID_SHORT_TEXT_SIZE; // short pieces are copied as blocks of fixed size

struct known_template {
  const char* from; // where it was found, and up to where it was looked for
  uint32_t limit;
  uint32_t compare_len; // octets that are as they were as long as the template is: the terminator is one of them
  uint32_t step_count;
  bool is_literal; // without letters: the expansion is the first `literal_len` octets of the text
  uint32_t literal_len;
  char text[TEMPLATE_LEN + BLOCK_LEN]; // zeros behind it, a block of them at least
  template_step steps[LINE_ID_EXPANSION_LEN + 1];
};

// The worker, like the letters themselves.
constexpr uint32_t KNOWN_TEMPLATES = 32;
constexpr uint32_t HINT_BITS = 8;
known_template g_known_templates[KNOWN_TEMPLATES];
known_template* g_template_hints[1U << HINT_BITS]; // by place: the one that was known there last, or null

int32_t set_of(const line_id_param_set& letters) { return static_cast<int32_t>(&letters - g_params); }

std::string_view text_of(int32_t set, uint8_t letter) {
  const std::string_view text = line_id_param_view(set, letter);
  return text.empty() ? "0" : text;
}

void trace_letter(int32_t set, uint8_t letter, std::string_view text, const char* out, uint32_t used) {
  const int len = static_cast<int>(text.size());
  LINE_ID_INFO(LOG_GENERAL, "g_lineid_params[%d][%d]:%.*s.\r\n", set, letter, len, text.data());
  LINE_ID_INFO(LOG_GENERAL, "pv_len:%d, b:%.*s#\r\n", len, static_cast<int>(used), out);
}

// The steps from `step` on, where room has become scarce, or with their traces: octets used in all.
__attribute__((cold)) uint32_t expand_rest(const line_id_param_set& letters, const known_template& known,
                                           const template_step* step, char* out, uint32_t used) {
  const int32_t set = set_of(letters);
  for (const template_step* end = known.steps + known.step_count; step != end; ++step) {
    uint32_t room = LINE_ID_EXPANSION_LEN - used;
    if (step->letter == PAIR_ONLY && step->len > room) break;
    const uint32_t len = std::min<uint32_t>(step->len, room);
    std::memcpy(out + used, known.text + step->at, len);
    used += len;
    if (step->letter >= NO_LETTER) continue;
    const std::string_view text = text_of(set, step->letter);
    room -= len;
    if (text.size() > room) break; // a value is written whole or not at all
    std::memcpy(out + used, text.data(), text.size());
    used += static_cast<uint32_t>(text.size());
    trace_letter(set, step->letter, text, out, used);
  }
  return used;
}

// What a block has written too far goes away again: the caller's buffer was zeroed.
inline uint32_t clear_behind(char* out, uint32_t used) {
  if (LINE_ID_EXPANSION_LEN - used >= BLOCK_LEN) {
    std::memset(out + used, 0, BLOCK_LEN);
  } else {
    std::memset(out + used, 0, LINE_ID_EXPANSION_LEN - used);
  }
  return used;
}

// expand_rest, and zeros behind it.
__attribute__((cold, noinline)) uint32_t finish(const line_id_param_set& letters, const known_template& known,
                                                const template_step* step, char* out, uint32_t used) {
  return clear_behind(out, expand_rest(letters, known, step, out, used));
}

uint32_t expand_other_text(const line_id_param_set& letters, const known_template& known, const template_step* step,
                           char* out, uint32_t used);

// The steps from `step` on, by blocks as long as there is room for any: octets used in all, zeros behind them. It calls
// nothing but its end, so that everything stays in registers.
__attribute__((noinline)) uint32_t expand_steps(const line_id_param_set& letters, const known_template& known,
                                                const template_step* step, char* out, uint32_t used) {
  char* to = out + used;
  const char* roomy = out + LINE_ID_EXPANSION_LEN - BLOCK_LEN - LINE_ID_TEXT_SIZE;
  for (; to <= roomy; ++step) {
    std::memcpy(to, known.text + step->at, BLOCK_LEN);
    if (__builtin_expect(step->letter == AT_END, 0)) return static_cast<uint32_t>(to - out); // that block was zeros
    to += step->len;
    if (step->letter >= NO_LETTER) continue;
    char* behind = line_id_put_short_text(letters, step->letter, to);
    if (behind == nullptr) {
      return expand_other_text(letters, known, step, out, static_cast<uint32_t>(to - out));
    }
    to = behind;
  }
  return finish(letters, known, step, out, static_cast<uint32_t>(to - out));
}

// The same where the letter of `step` is not short, and the octets of `step` are there already.
__attribute__((noinline)) uint32_t expand_other_text(const line_id_param_set& letters, const known_template& known,
                                                     const template_step* step, char* out, uint32_t used) {
  const std::string_view text = text_of(set_of(letters), step->letter);
  std::memcpy(out + used, text.data(), text.size());
  return expand_steps(letters, known, step + 1, out, used + static_cast<uint32_t>(text.size()));
}

void add_octet(known_template& known, uint32_t at) {
  if (known.step_count > 0) {
    template_step& last = known.steps[known.step_count - 1];
    if (last.letter == NO_LETTER && last.at + last.len == at && last.len < BLOCK_LEN) {
      ++last.len;
      return;
    }
  }
  known.steps[known.step_count++] = {static_cast<uint16_t>(at), 1, NO_LETTER};
}

void add_letter(known_template& known, uint8_t letter) {
  if (known.step_count > 0 && known.steps[known.step_count - 1].letter == NO_LETTER) {
    known.steps[known.step_count - 1].letter = letter;
  } else {
    known.steps[known.step_count++] = {0, 0, letter};
  }
}

__attribute__((cold, noinline)) void take_apart(known_template& known, std::string_view limits) {
  known = {};
  known.from = limits.data();
  known.limit = static_cast<uint32_t>(limits.size());
  const std::string_view fmt = limits.substr(0, limits.find('\0'));
  known.compare_len = static_cast<uint32_t>(std::min(fmt.size() + 1, limits.size()));
  if (!fmt.empty()) std::memcpy(known.text, fmt.data(), fmt.size());
  for (uint32_t pos = 0; pos < fmt.size() && known.step_count < LINE_ID_EXPANSION_LEN;) {
    if (fmt[pos] != '%') {
      add_octet(known, pos++);
      continue;
    }
    const int32_t slot = line_id_param_slot(char_at(fmt, pos + 1));
    if (slot >= 0) {
      add_letter(known, static_cast<uint8_t>(slot));
    } else {
      // ODD: a lone "%" at the end is followed by a zero octet.
      known.steps[known.step_count++] = {static_cast<uint16_t>(pos), 2, PAIR_ONLY};
    }
    pos += 2;
  }
  known.steps[known.step_count] = {TEMPLATE_LEN, 0, AT_END};
  known.is_literal = std::all_of(known.steps, known.steps + known.step_count,
                                 [](const template_step& step) { return step.letter >= NO_LETTER; });
  char out[LINE_ID_EXPANSION_LEN];
  if (known.is_literal) known.literal_len = expand_rest(g_params[0], known, known.steps, out, 0);
}

// The template is still the one that was taken apart.
inline bool is_same(const known_template& known, const char* text) {
  // Most custom templates are a letter or two: one word, in which only their octets count.
  if (known.compare_len <= sizeof(uint64_t) && known.limit >= sizeof(uint64_t)) {
    uint64_t one = 0;
    uint64_t other = 0;
    std::memcpy(&one, known.text, sizeof(one));
    std::memcpy(&other, text, sizeof(other));
    const uint32_t others = 64 - 8 * known.compare_len;
    const uint64_t differ = one ^ other;
    return (std::endian::native == std::endian::little ? differ << others : differ >> others) == 0;
  }
  return known.compare_len == 0 || std::memcmp(known.text, text, known.compare_len) == 0;
}

bool is_from(const known_template& known, std::string_view limits) {
  return known.from == limits.data() && known.limit == limits.size();
}

known_template*& hint_of(std::string_view limits) {
  const uint64_t mixed = reinterpret_cast<uintptr_t>(limits.data()) * 0x9E3779B97F4A7C15; // 2^64 by the golden ratio
  return g_template_hints[mixed >> (64 - HINT_BITS)];
}

__attribute__((cold, noinline)) known_template* find_template(std::string_view limits) {
  static uint32_t next = 0;
  known_template*& hint = hint_of(limits);
  for (known_template& known : g_known_templates) {
    if (is_from(known, limits)) return hint = &known;
  }
  known_template& oldest = g_known_templates[next++ % KNOWN_TEMPLATES];
  take_apart(oldest, limits);
  return hint = &oldest;
}

// Whoever changes a template in place gets it taken apart again.
inline const known_template& steps_of(std::string_view limits) {
  limits = limits.substr(0, TEMPLATE_LEN);
  known_template* known = hint_of(limits);
  if (known == nullptr || !is_from(*known, limits)) known = find_template(limits);
  // The known one's own limits are the same, and need no register across the comparison.
  if (!is_same(*known, limits.data())) take_apart(*known, {known->from, known->limit});
  return *known;
}

template <bool may_trace> inline int32_t expand(const line_id_param_set& letters, std::string_view fmt, char* out) {
  const known_template& known = steps_of(fmt);
  if (known.is_literal) {
    std::memcpy(out, known.text, known.literal_len);
    return static_cast<int32_t>(clear_behind(out, known.literal_len));
  }
  const bool traced = may_trace && line_id_log_enabled(LOG_GENERAL, 2);
  return static_cast<int32_t>(traced ? finish(letters, known, known.steps, out, 0)
                                     : expand_steps(letters, known, known.steps, out, 0));
}

} // namespace

__attribute__((noinline)) char* line_id_put_longer_number(char* to, uint64_t number) {
  constexpr uint64_t THOUSAND = LINE_ID_SMALL_NUMBERS.size();
  if (number < THOUSAND || number >= THOUSAND * THOUSAND) return nullptr;
  to = line_id_put_small_number(to, number / THOUSAND);
  std::memcpy(to, THREE_DIGITS[static_cast<size_t>(number % THOUSAND)].data(), sizeof(three_digits));
  return to + 3;
}

int32_t line_id_check_delimiter(char ch) {
  if (DELIMITERS.find(ch) != std::string_view::npos) return LINE_ID_OK;
  LINE_ID_WARN(LOG_GENERAL, "line_id_check_delimiter  deli err (%d).\r\n", ch);
  return LINE_ID_ERR;
}

int32_t line_id_check_format(const char* fmt) {
  if (fmt == nullptr) return LINE_ID_ERR_DELIMITER;
  const std::string_view text(fmt);
  size_t pos = 0;
  while (pos < text.size()) {
    if (text[pos] != '%' || line_id_param_slot(char_at(text, pos + 1)) < 0) {
      // ODD: of "%%a" the second "%" counts as a reference here, while expansion takes "%%" as a pair.
      ++pos;
      continue;
    }
    if (line_id_check_delimiter(char_at(text, pos + 2)) != LINE_ID_OK) {
      LINE_ID_WARN(LOG_GENERAL, "line_id_check_format line_id_check_delimiter (%d).\r\n", LINE_ID_ERR_DELIMITER);
      return LINE_ID_ERR_DELIMITER;
    }
    pos += 3;
  }
  return LINE_ID_OK;
}

int32_t line_id_expand_template(int32_t set, std::string_view fmt, char* out) {
  if (!line_id_is_param_set(set)) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_print_format (%d).\r\n", LINE_ID_ERR_LEVEL);
    return LINE_ID_ERR_LEVEL;
  }
  return expand<true>(g_params[set], fmt, out);
}

int32_t line_id_expand_untraced(const line_id_param_set& letters, std::string_view fmt, char* out) {
  return expand<false>(letters, fmt, out);
}

int32_t line_id_print_format(int32_t set, const char* fmt, char* out) {
  if (fmt == nullptr || out == nullptr) {
    LINE_ID_ERROR("line_id_print_format (%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  return line_id_expand_template(set, fmt, out);
}

int32_t line_id_parse_params(int32_t set, std::string_view fmt, const char* text, uint32_t length) {
  if (!line_id_is_param_set(set)) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_parse_params  lineid_set err (%d).\r\n", set);
    return LINE_ID_ERR;
  }
  size_t p = 0;   // in the template
  uint32_t q = 0; // in the text
  while (p < fmt.size()) {
    const char letter = char_at(fmt, p + 1);
    const int32_t slot = fmt[p] == '%' ? line_id_param_slot(letter) : -1;
    if (slot < 0) {
      if (fmt[p] == '%' && letter == '\0') return LINE_ID_OK;
      // ODD: "%" before another character matches alone, so of "%%a" the second "%" is a reference.
      if (q >= length || text[q] != fmt[p]) return parse_failed(__func__, __LINE__);
      ++p;
      ++q;
      continue;
    }
    const char delimiter = char_at(fmt, p + 2);
    const void* found = q < length ? std::memchr(text + q, delimiter, length - q) : nullptr;
    const uint32_t end = found != nullptr ? static_cast<uint32_t>(static_cast<const char*>(found) - text) : length;
    if (g_params[set].flag[slot] == PARAM_FREE && fill_letter(set, slot, {text + q, end - q}) != LINE_ID_OK) {
      return LINE_ID_ERR;
    }
    if (delimiter == '\0') return LINE_ID_OK;
    if (found == nullptr) return parse_failed(__func__, __LINE__);
    p += 3;
    q = end + 1;
  }
  return LINE_ID_OK;
}

int32_t line_id_get_pos(const char* buffer, char ch, uint32_t n, uint32_t len) {
  uint32_t seen = 0;
  for (uint32_t i = 0; i < len; ++i) {
    if (buffer[i] == ch && ++seen == n) return static_cast<int32_t>(i);
  }
  return -1;
}

int32_t line_id_alias_to_space(const char* in, char* out) {
  if (in == nullptr || out == nullptr) return LINE_ID_ERR_NULL;
  uint32_t pos = 0;
  uint32_t used = 0;
  bool second_of_pair = false;
  while (pos < LINE_ID_ALIAS_LEN && used < LINE_ID_ALIAS_LEN && in[pos] != '\0') {
    const bool percent = in[pos] == '%' && !second_of_pair;
    const bool alias = percent && pos + 1 < LINE_ID_ALIAS_LEN && in[pos + 1] == '_';
    out[used++] = alias ? ' ' : in[pos];
    pos += alias ? 2 : 1;
    second_of_pair = percent && !alias;
  }
  return static_cast<int32_t>(used);
}

int32_t line_id_space_to_alias(const char* in, char* out) {
  if (in == nullptr || out == nullptr) return LINE_ID_ERR_NULL;
  int32_t used = 0;
  for (; *in != '\0'; ++in) {
    if (*in == ' ') out[used++] = '%';
    out[used++] = *in == ' ' ? '_' : *in;
  }
  return used;
}
