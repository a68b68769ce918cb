// Templates: check, expansion, reverse parsing, space alias.
#include "lineid/format.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "core/log.h"
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

// ---- expansion: a template is taken apart once, and its parts are remembered with a copy of it

// One step of an expansion: octets of the template, or a letter.
struct template_part {
  uint16_t at;
  uint8_t len; // of octets that are copied
  uint8_t kind;
};
constexpr uint8_t PART_OCTETS = 0xFD; // as far as there is room
constexpr uint8_t PART_PAIR = 0xFE;   // "%" and what follows it, both or neither; any other kind is a letter's slot

// No template expands further than this: each of its parts writes an octet at least, and has two at most for that.
constexpr uint32_t TEMPLATE_LEN = 2 * LINE_ID_EXPANSION_LEN;
constexpr uint32_t COPY_LEN = 16; // short pieces are copied as blocks of fixed size

struct known_template {
  const char* from;
  uint32_t len;
  uint32_t part_count;
  char text[TEMPLATE_LEN + COPY_LEN]; // zeros behind it
  template_part parts[LINE_ID_EXPANSION_LEN];
};

// The worker, like the letters themselves.
constexpr uint32_t KNOWN_TEMPLATES = 16;
known_template g_known_templates[KNOWN_TEMPLATES];

void add_octet(known_template& known, uint32_t at) {
  if (known.part_count > 0) {
    template_part& last = known.parts[known.part_count - 1];
    if (last.kind == PART_OCTETS && last.at + last.len == at && last.len < UINT8_MAX) {
      ++last.len;
      return;
    }
  }
  known.parts[known.part_count++] = {static_cast<uint16_t>(at), 1, PART_OCTETS};
}

void take_apart(known_template& known, std::string_view fmt) {
  known = {};
  known.from = fmt.data();
  known.len = static_cast<uint32_t>(fmt.size());
  if (!fmt.empty()) std::memcpy(known.text, fmt.data(), fmt.size());
  for (uint32_t pos = 0; pos < fmt.size() && known.part_count < LINE_ID_EXPANSION_LEN;) {
    if (fmt[pos] != '%') {
      add_octet(known, pos++);
      continue;
    }
    const int32_t slot = line_id_param_slot(char_at(fmt, pos + 1));
    const uint8_t kind = slot >= 0 ? static_cast<uint8_t>(slot) : PART_PAIR;
    // ODD: a lone "%" at the end is followed by a zero octet.
    known.parts[known.part_count++] = {static_cast<uint16_t>(pos), 2, kind};
    pos += 2;
  }
}

// Whoever changes a template in place gets it taken apart again.
const known_template& parts_of(std::string_view fmt) {
  static uint32_t next = 0;
  fmt = fmt.substr(0, TEMPLATE_LEN);
  for (known_template& known : g_known_templates) {
    if (known.from != fmt.data() || known.len != fmt.size()) continue;
    if (std::memcmp(known.text, fmt.data(), fmt.size()) != 0) take_apart(known, fmt);
    return known;
  }
  known_template& oldest = g_known_templates[next++ % KNOWN_TEMPLATES];
  take_apart(oldest, fmt);
  return oldest;
}

void trace_letter(int32_t set, const template_part& part, std::string_view text, const char* out, uint32_t used) {
  const int len = static_cast<int>(text.size());
  LINE_ID_INFO(LOG_GENERAL, "g_lineid_params[%d][%d]:%.*s.\r\n", set, part.kind, len, text.data());
  LINE_ID_INFO(LOG_GENERAL, "pv_len:%d, b:%.*s#\r\n", len, static_cast<int>(used), out);
}

} // namespace

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
  static constexpr char NO_TEXT[COPY_LEN] = "0"; // of a letter without one
  const known_template& known = parts_of(fmt);
  const bool traced = line_id_log_enabled(LOG_GENERAL, 2);
  uint32_t used = 0;
  for (const template_part *part = known.parts, *end = part + known.part_count; part != end; ++part) {
    const bool is_letter = part->kind < PART_OCTETS;
    const char* piece = known.text + part->at;
    uint32_t len = part->len;
    if (is_letter) {
      const std::string_view text = line_id_param_view(set, part->kind);
      piece = text.empty() ? NO_TEXT : text.data();
      len = text.empty() ? 1 : static_cast<uint32_t>(text.size());
    }
    if (len <= COPY_LEN && used <= LINE_ID_EXPANSION_LEN - COPY_LEN) {
      std::memcpy(out + used, piece, COPY_LEN);
    } else {
      if (part->kind == PART_OCTETS) len = std::min(len, LINE_ID_EXPANSION_LEN - used);
      if (len > LINE_ID_EXPANSION_LEN - used) break; // a value or a pair is written whole or not at all
      std::memcpy(out + used, piece, len);
    }
    used += len;
    if (traced && is_letter) trace_letter(set, *part, {piece, len}, out, used);
  }
  // What a block has written too far goes away again: the caller's buffer was zeroed.
  if (LINE_ID_EXPANSION_LEN - used >= COPY_LEN) {
    std::memset(out + used, 0, COPY_LEN);
  } else {
    std::memset(out + used, 0, LINE_ID_EXPANSION_LEN - used);
  }
  return static_cast<int32_t>(used);
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
    if (g_params_flag[set][slot] == PARAM_FREE && fill_letter(set, slot, {text + q, end - q}) != LINE_ID_OK) {
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
