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

// Append a letter's text to `out`, of which `used` octets are filled: its length, 0 when it does not fit. Most texts are
// short and are copied as a block of fixed size, with the zeros behind them.
uint32_t append_letter(int32_t set, int32_t slot, char* out, uint32_t used) {
  const uint32_t len = g_lineid_params_len[set][slot];
  const uint32_t room = LINE_ID_EXPANSION_LEN - used;
  if (len == 0) { // there is room for one octet
    out[used] = '0';
    return 1;
  }
  if (len > room) return 0; // a value is written whole or not at all
  const char* text = g_lineid_params[set][slot];
  if (len <= LINE_ID_SHORT_TEXT_SIZE && room >= LINE_ID_SHORT_TEXT_SIZE) {
    std::memcpy(out + used, text, LINE_ID_SHORT_TEXT_SIZE);
  } else {
    std::memcpy(out + used, text, len);
  }
  return len;
}

// Append what stands in front of the next "%", which is not the first character, as far as there is room: its length.
uint32_t append_literal(std::string_view fmt, char* out, uint32_t used) {
  if (fmt.size() == 1 || fmt[1] == '%') { // most literals are single delimiters
    out[used] = fmt[0];
    return 1;
  }
  const size_t len = std::min<size_t>(std::min(fmt.size(), fmt.find('%')), LINE_ID_EXPANSION_LEN - used);
  std::memcpy(out + used, fmt.data(), len);
  return static_cast<uint32_t>(len);
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
  uint32_t used = 0;
  size_t pos = 0;
  while (pos < fmt.size() && used < LINE_ID_EXPANSION_LEN) {
    if (fmt[pos] != '%') {
      const uint32_t len = append_literal(fmt.substr(pos), out, used);
      pos += len;
      used += len;
      continue;
    }
    const char letter = char_at(fmt, pos + 1);
    const int32_t slot = line_id_param_slot(letter);
    pos += 2;
    if (slot < 0) {
      if (used >= LINE_ID_EXPANSION_LEN - 1) break;
      // ODD: a lone "%" at the end is followed by a zero octet.
      out[used++] = '%';
      out[used++] = letter;
      continue;
    }
    const uint32_t len = append_letter(set, slot, out, used);
    if (len == 0) break;
    LINE_ID_INFO(LOG_GENERAL, "g_lineid_params[%d][%d]:%.*s.\r\n", set, slot, static_cast<int>(len), out + used);
    used += len;
    LINE_ID_INFO(LOG_GENERAL, "pv_len:%d, b:%.*s#\r\n", static_cast<int>(len), static_cast<int>(used), out);
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
