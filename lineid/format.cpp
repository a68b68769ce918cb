// Templates: check, expansion, reverse parsing, space alias.
#include "lineid/format.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log.h"
#include "lineid/params.h"

namespace {

// The terminator that the literal carries counts too.
constexpr std::string_view DELIMITERS(" ./:;[]{}<>()-_", sizeof(" ./:;[]{}<>()-_"));

char char_at(std::string_view text, size_t pos) { return pos < text.size() ? text[pos] : '\0'; }

// The text of a letter, empty when there is none.
std::string_view param_view(int32_t set, int32_t slot) {
  const char* text = g_lineid_params[set][slot];
  if (text == nullptr) return {};
  const void* end = std::memchr(text, '\0', LINE_ID_PARAM_LEN);
  return {text, end != nullptr ? static_cast<size_t>(static_cast<const char*>(end) - text) : LINE_ID_PARAM_LEN};
}

int32_t parse_failed(const char* function, int line) {
  if (line_id_log_enabled(LOG_GENERAL, 1)) {
    line_id_log_trace("[LNID_WARN]", function, line, "%s err (%d).\r\n", function, LINE_ID_ERR_PARSE);
  }
  return LINE_ID_ERR_PARSE;
}

// Put a received text into a letter, cut to its buffer; the flag stays. 0, or -1 without memory.
int32_t fill_letter(int32_t set, char letter, const char* text, uint32_t len) {
  const int32_t slot = line_id_param_slot(letter);
  if (g_lineid_params[set][slot] == nullptr) {
    char* fresh = static_cast<char*>(std::calloc(1, LINE_ID_TEXT_SIZE));
    if (fresh == nullptr) {
      std::printf("Unable to allocate memory : %s\r\n", "line_id_parse_params");
      return LINE_ID_ERR;
    }
    line_id_set_param(set, letter, fresh);
  }
  char* buffer = g_lineid_params[set][slot];
  std::memset(buffer, 0, LINE_ID_TEXT_SIZE);
  std::memcpy(buffer, text, len < LINE_ID_PARAM_LEN ? len : LINE_ID_PARAM_LEN);
  return LINE_ID_OK;
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
      out[used++] = fmt[pos++];
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
    std::string_view value = param_view(set, slot);
    if (value.empty()) value = "0";
    if (value.size() > LINE_ID_EXPANSION_LEN - used) break; // a value is written whole or not at all
    std::memcpy(out + used, value.data(), value.size());
    used += static_cast<uint32_t>(value.size());
    const int len = static_cast<int>(value.size());
    LINE_ID_INFO(LOG_GENERAL, "g_lineid_params[%d][%d]:%.*s.\r\n", set, slot, len, value.data());
    LINE_ID_INFO(LOG_GENERAL, "pv_len:%d, b:%.*s#\r\n", len, static_cast<int>(used), out);
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
    if (g_params_flag[set][slot] == PARAM_FREE && fill_letter(set, letter, text + q, end - q) != LINE_ID_OK) {
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
