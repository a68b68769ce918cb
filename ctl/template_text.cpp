// Checking and expanding templates.
#include "ctl/template_text.h"

#include "ctl/failure.h"
#include "include/line_id.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr std::string_view DELIMITERS = " ./:;[]{}<>()-_";
constexpr size_t LETTER_LIMIT = LINE_ID_TEXT_SIZE - 1;
constexpr size_t GIVEN_LIMIT = size_t{2} * LINE_ID_FORMAT_LEN; // each octet may be a space, given as two

// Letters that the agent fills itself, and how long their values get. All others come from a pin or a host's hook.
struct letter_row {
  char letter;
  uint8_t longest;
};
constexpr letter_row LETTERS[] = {
    {'a', 50}, {'r', 6}, {'f', 6}, {'O', 15}, {'z', 12}, {'u', 32}, {'H', 50}, {'B', 50}, {'L', 50},
    {'S', 5},  {'T', 5}, {'M', 5}, {'F', 3},  {'s', 5},  {'c', 5},  {'t', 3},  {'X', 5},  {'x', 5},
    {'h', 12}, {'P', 5}, {'o', 5}, {'g', 5},  {'p', 5},  {'m', 50}, {'n', 50}, {'C', 50},
};

bool is_letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

const letter_row* row_of(char letter) {
  const auto* row = std::find_if(std::begin(LETTERS), std::end(LETTERS),
                                 [letter](const letter_row& known) { return known.letter == letter; });
  return row != std::end(LETTERS) ? row : nullptr;
}

std::string to_stored(const std::string& given) {
  std::string stored(given.size(), '\0');
  const int32_t len = line_id_alias_to_space(given.c_str(), stored.data());
  stored.resize(static_cast<size_t>(std::max(len, 0)));
  return stored;
}

// Calls `reference(offset, letter)` for each reference and `literal(octets)` for what stands between them.
template <typename on_reference, typename on_literal>
void walk(const std::string& stored, on_reference reference, on_literal literal) {
  for (size_t at = 0; at < stored.size();) {
    const bool pair = stored[at] == '%' && at + 1 < stored.size();
    if (pair && is_letter(stored[at + 1])) {
      reference(at, stored[at + 1]);
    } else {
      literal(pair ? 2 : 1);
    }
    at += pair ? 2 : 1;
  }
}

// Offsets of the given template by those of the stored one: each "%_" became one octet, other pairs stayed.
size_t given_offset(const std::string& given, size_t stored_at) {
  size_t at = 0;
  for (size_t i = 0; i < stored_at && at < given.size(); ++i) {
    const bool pair = given[at] == '%' && at + 1 < given.size();
    if (pair && given[at + 1] != '_') {
      if (i + 1 == stored_at) return at + 1;
      ++i;
    }
    at += pair ? 2 : 1;
  }
  return at;
}

// As the library checks: a reference is searched at every %, also at the second one of "%%".
std::optional<template_fault> reference_fault(const std::string& given, const std::string& stored) {
  for (size_t at = 0; at + 1 < stored.size();) {
    if (stored[at] != '%' || !is_letter(stored[at + 1])) {
      ++at;
      continue;
    }
    if (at + 2 < stored.size() && DELIMITERS.find(stored[at + 2]) == std::string_view::npos) {
      return template_fault{given_offset(given, at + 2),
                            std::string("behind %") + stored[at + 1] +
                                " only a space (written %_), one of ./:;[]{}<>()-_ or the end can stand"};
    }
    at += 3;
  }
  return std::nullopt;
}

bool ends_in_lone_percent(const std::string& stored) {
  bool lone = false;
  walk(
      stored, [&](size_t, char) { lone = false; }, [&](size_t octets) { lone = octets == 1 && stored.back() == '%'; });
  return lone;
}

} // namespace

std::optional<template_fault> template_check(const std::string& given) {
  if (const size_t nul = given.find('\0'); nul != std::string::npos) return template_fault{nul, "an octet of value 0"};
  if (given.size() > GIVEN_LIMIT) {
    return template_fault{GIVEN_LIMIT, "too long: at most 256 octets are stored"};
  }
  const std::string stored = to_stored(given);
  if (auto fault = reference_fault(given, stored)) return fault;
  if (line_id_check_format(stored.c_str()) != LINE_ID_OK) return template_fault{0, "the agent refuses this template"};
  if (ends_in_lone_percent(stored)) {
    return template_fault{given.size() - 1, "a letter is missing behind the % at the end"};
  }
  if (stored.size() > LINE_ID_FORMAT_LEN) {
    return template_fault{given_offset(given, LINE_ID_FORMAT_LEN),
                          "too long: " + std::to_string(stored.size()) + " octets, at most 256 are stored"};
  }
  return std::nullopt;
}

std::string template_caret(const std::string& given, const template_fault& fault) {
  const std::string before = printable(std::string_view(given).substr(0, fault.at));
  const auto columns = std::count_if(before.begin(), before.end(), [](char c) { return (c & 0xC0) != 0x80; }); // UTF-8
  return fault.text + "\n  " + printable(given) + "\n  " + std::string(static_cast<size_t>(columns), ' ') + "^";
}

std::string template_stored(const std::string& what, const std::string& given) {
  if (const auto fault = template_check(given)) {
    throw ctl_failure(STATUS_TEMPLATE, what + ": " + template_caret(given, *fault));
  }
  return to_stored(given);
}

std::string template_alias(const std::string& stored) {
  std::string alias(stored.size() * 2 + 1, '\0');
  const int32_t len = line_id_space_to_alias(stored.c_str(), alias.data());
  alias.resize(static_cast<size_t>(std::max(len, 0)));
  return alias;
}

template_length template_longest(const std::string& stored) {
  template_length length = {};
  walk(
      stored,
      [&](size_t, char letter) {
        const letter_row* row = row_of(letter);
        length.usual += row != nullptr ? row->longest : LETTER_LIMIT;
        length.pinned += LETTER_LIMIT;
      },
      [&](size_t octets) {
        length.usual += octets;
        length.pinned += octets;
      });
  return length;
}

std::vector<std::string> template_warnings(const std::string& stored) {
  std::vector<std::string> warnings;
  const template_length longest = template_longest(stored);
  const std::string limit = std::to_string(EXPANSION_LIMIT) + " octets: the value that would cross them is left out, "
                                                              "with all behind it";
  if (longest.usual > EXPANSION_LIMIT) {
    warnings.push_back("its text can reach " + std::to_string(longest.usual) + " octets, but ends at " + limit);
  } else if (longest.pinned > EXPANSION_LIMIT) {
    warnings.push_back("with letters pinned to long texts it can reach " + std::to_string(longest.pinned) +
                       " octets, but ends at " + limit);
  }
  std::string unfilled;
  walk(
      stored,
      [&](size_t, char letter) {
        if (row_of(letter) != nullptr || unfilled.find(letter) != std::string::npos) return;
        unfilled += letter;
      },
      [](size_t) {});
  for (const char letter : unfilled) {
    warnings.push_back(std::string("%") + letter +
                       " has no value of its own: it reads 0 unless it is pinned or the "
                       "host fills it");
  }
  return warnings;
}

std::string template_expand(const std::string& stored, const letter_texts& letters) {
  if (line_id_init_params() != LINE_ID_OK) throw ctl_failure(STATUS_FAILED, "out of memory");
  for (const auto& [letter, text] : letters) {
    if (const int32_t ret = line_id_write_param(0, letter, text.c_str(), 1); ret < 0) {
      throw ctl_failure(STATUS_REFUSED,
                        std::string("letter ") + letter + ": refused by the library (" + std::to_string(ret) + ")");
    }
  }
  char text[LINE_ID_FORMAT_LEN] = {};
  const int32_t len = line_id_print_format(0, stored.c_str(), text);
  if (len < 0) throw ctl_failure(STATUS_FAILED, "the template cannot be expanded (" + std::to_string(len) + ")");
  return {text, static_cast<size_t>(len)};
}

std::string printable(std::string_view text) {
  std::string shown;
  for (const char c : text) {
    if (const auto octet = static_cast<uint8_t>(c); octet < 0x20 || octet == 0x7F) {
      char code[8];
      std::snprintf(code, sizeof(code), "\\x%02x", octet);
      shown += code;
    } else {
      shown += c;
    }
  }
  return shown;
}
