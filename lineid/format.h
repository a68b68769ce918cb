// Templates: their check, expansion, reverse parsing and space alias, and the built-in ones.
//
// In a template "%" and a letter stand for the letter's text; "%" and any other character are two literal characters.
// Texts that may lack a terminator come as views, so that nothing is copied. The worker; the checker and the alias run
// in any process. line_id_check_format, line_id_print_format and the alias are declared in include/line_id.h.
#pragma once

#include "include/line_id.h"

#include <cstdint>
#include <string_view>

struct line_id_param_set;

constexpr uint32_t LINE_ID_EXPANSION_LEN = 248; // octets an expansion may have
constexpr uint32_t LINE_ID_ALIAS_LEN = 1024;    // octets the alias conversion reads, and writes

// Indexed by the default standard format type: each adds coordinates on the ONU's side.
inline constexpr std::string_view CTC_FORMAT[3] = {
    "0 0/0/0:%s.%c %a/%r/%f/%S/%Y/%p/%m %F",
    "0 0/0/0:%s.%c %a/%r/%f/%S/%Y/%p/%m %T/%M/%P %F",
    "0 0/0/0:%s.%c %a/%r/%f/%S/%Y/%p/%m %T/%M/%P:%t/%X/%x %F",
};
inline constexpr std::string_view CNC_FORMAT[3] = {
    "0 0/0/0:%s.%c %B/%a/%r/%f/%S/%L/%Y/%p %m/%n %F",
    "0 0/0/0:%s.%c %B/%a/%r/%f/%S/%L/%Y/%p %m/%n/%T/%M/%P %F",
    "0 0/0/0:%s.%c %B/%a/%r/%f/%S/%L/%Y/%p %m/%n/%T/%M/%P:%t/%X/%x %F",
};
// Heads for the identifier of an ONU that named itself; [1] when the ONU's logical identity is valid.
// ODD: three end in a space, the CTC one without a valid identity in "/".
inline constexpr std::string_view CNC_SPLICE_FORMAT[2] = {
    "0 0/0/0:%s.%c olt/%a/%r/%f/%S/%L/0/%p ",
    "0 0/0/0:%s.%c olt/%a/%r/%f/%S/%L/0/%p/%m/ ",
};
inline constexpr std::string_view CTC_SPLICE_FORMAT[2] = {
    "0 0/0/0:%s.%c %a/%r/%f/%S/0/%p/",
    "0 0/0/0:%s.%c %a/%r/%f/%S/0/%p/%m ",
};

// The built-in templates by number: the families one behind the other, each from its first template on.
enum line_id_standard : uint8_t {
  STANDARD_CTC = 0,
  STANDARD_CNC = 3,
  STANDARD_CTC_SPLICE = 6,
  STANDARD_CNC_SPLICE = 8,
  LINE_ID_STANDARDS = 10,
};
constexpr std::string_view line_id_standard_template(uint32_t number) {
  if (number < STANDARD_CNC) return CTC_FORMAT[number - STANDARD_CTC];
  if (number < STANDARD_CTC_SPLICE) return CNC_FORMAT[number - STANDARD_CNC];
  if (number < STANDARD_CNC_SPLICE) return CTC_SPLICE_FORMAT[number - STANDARD_CTC_SPLICE];
  return CNC_SPLICE_FORMAT[number - STANDARD_CNC_SPLICE];
}

// A stored template, for expansion: its whole field.
inline std::string_view line_id_template_field(const char (&field)[LINE_ID_FORMAT_LEN]) {
  return {field, LINE_ID_FORMAT_LEN};
}
// The same without what is behind it: up to its terminator, or all of its 256 octets.
inline std::string_view line_id_template_view(const char (&field)[LINE_ID_FORMAT_LEN]) {
  const std::string_view all(field, LINE_ID_FORMAT_LEN);
  return all.substr(0, all.find('\0'));
}

// 0 for a character that may follow a reference (the terminator included), else -1.
int32_t line_id_check_delimiter(char ch);

// Expand `fmt`, up to its terminator if there is one, with a set's letters into `out`, which holds at least
// LINE_ID_EXPANSION_LEN octets; no terminator. Octets written, perhaps of a text cut short, or -31 for a bad set.
int32_t line_id_expand_template(int32_t set, std::string_view fmt, char* out);
// The same without traces; and of a built-in template (a number below LINE_ID_STANDARDS), by code that was made for it.
int32_t line_id_expand_untraced(const line_id_param_set& letters, std::string_view fmt, char* out);
int32_t line_id_expand_standard_untraced(const line_id_param_set& letters, uint32_t number, char* out);

// Pick the letters' texts back out of `length` octets of an identifier: fills the letters whose flag is 0, up to 50
// characters each, and leaves the flags. 0; -160 when the text does not fit (letters found so far stay), -1 for a bad
// set or without memory.
int32_t line_id_parse_params(int32_t set, std::string_view fmt, const char* text, uint32_t length);

// Index of the n-th `ch` (from 1) within `len` octets, or -1.
int32_t line_id_get_pos(const char* buffer, char ch, uint32_t n, uint32_t len);
