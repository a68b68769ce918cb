// Templates: the checker, expansion, reverse parsing and the space alias. An input is the lengths of the template and
// of four letters' texts, these themselves, and a text to be picked apart.
#include "fuzz/case.h"

#include "lineid/format.h"
#include "lineid/params.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr int32_t SET = 0;
constexpr std::string_view LETTERS = "smnF";

struct template_case {
  std::string fmt;
  std::string texts[LETTERS.size()];
  std::string received;
};

bool read_case(const uint8_t* data, size_t size, template_case& input) {
  constexpr size_t LENGTHS = 1 + LETTERS.size();
  if (size < LENGTHS) return false;
  std::string_view rest(reinterpret_cast<const char*>(data) + LENGTHS, size - LENGTHS);
  const auto take = [&rest](size_t len) {
    const std::string taken(rest.substr(0, len));
    rest.remove_prefix(taken.size());
    return taken;
  };
  input.fmt = take(data[0]);
  for (size_t i = 0; i < LETTERS.size(); ++i) input.texts[i] = take(data[1 + i] % 60);
  input.received = rest;
  return true;
}

octets to_octets(std::string_view s) { return {s.begin(), s.end()}; }

octets expand(std::string_view fmt) {
  const exact_copy exact(to_octets(fmt));
  octets out(LINE_ID_EXPANSION_LEN);
  const int32_t len = line_id_expand_template(SET, {reinterpret_cast<char*>(exact.at.get()), fmt.size()},
                                              reinterpret_cast<char*>(out.data()));
  FUZZ_CHECK(len >= 0 && len <= static_cast<int32_t>(LINE_ID_EXPANSION_LEN), "expanded to %d", len);
  out.resize(static_cast<size_t>(len));
  return out;
}

int32_t parse(std::string_view fmt, const octets& text) {
  const exact_copy exact_fmt(to_octets(fmt));
  const exact_copy exact_text(text);
  return line_id_parse_params(SET, {reinterpret_cast<char*>(exact_fmt.at.get()), fmt.size()},
                              reinterpret_cast<char*>(exact_text.at.get()), static_cast<uint32_t>(text.size()));
}

void write_letters(const template_case& input) {
  line_id_reset_params(SET);
  for (size_t i = 0; i < LETTERS.size(); ++i) {
    line_id_write_param(SET, LETTERS[i], input.texts[i].c_str(), PARAM_SET);
  }
}

// An expansion can be taken apart again when the template is well formed, every reference is one of LETTERS, once, and
// the text of a letter does not hold the delimiter behind it.
bool is_unambiguous(const template_case& input) {
  if (line_id_check_format(input.fmt.c_str()) != LINE_ID_OK) return false;
  std::string seen;
  for (size_t at = 0; at < input.fmt.size(); ++at) {
    if (input.fmt[at] == '\0') return false;
    if (input.fmt[at] != '%') continue;
    const char letter = at + 1 < input.fmt.size() ? input.fmt[at + 1] : '\0';
    const size_t index = LETTERS.find(letter);
    if (index == std::string_view::npos || seen.find(letter) != std::string::npos) return false;
    const std::string_view text(input.texts[index].c_str());
    const char delimiter = at + 2 < input.fmt.size() ? input.fmt[at + 2] : '\0';
    if (text.empty() || text.size() > LINE_ID_PARAM_LEN || text.find(delimiter) != std::string_view::npos) return false;
    seen += letter;
    ++at;
  }
  return true;
}

void check_round_trip(const template_case& input, const octets& expanded) {
  // Cut short when full.
  if (!is_unambiguous(input) || expanded.size() > LINE_ID_EXPANSION_LEN - LINE_ID_PARAM_LEN) return;
  line_id_reset_params(SET);
  FUZZ_CHECK(parse(input.fmt, expanded) == LINE_ID_OK, "an expanded text does not fit its template");
  for (size_t i = 0; i < LETTERS.size(); ++i) {
    if (input.fmt.find(std::string("%") + LETTERS[i]) == std::string::npos) continue;
    FUZZ_CHECK(std::strcmp(line_id_get_param_text(SET, LETTERS[i]), input.texts[i].c_str()) == 0,
               "letter %c came back as \"%s\"", LETTERS[i], line_id_get_param_text(SET, LETTERS[i]));
  }
}

// Every letter is in its buffer, terminated.
void check_letters() {
  for (int32_t letter = 'A'; letter <= 'z'; ++letter) {
    if (line_id_param_allocated(SET, letter) == 0) continue;
    const char* text = line_id_get_param_text(SET, letter);
    FUZZ_CHECK(std::memchr(text, '\0', LINE_ID_TEXT_SIZE) != nullptr, "letter %c has no end", letter);
  }
}

void check_alias(const std::string& text) {
  const std::string plain(text.c_str());
  const octets terminated = to_octets({plain.c_str(), plain.size() + 1});
  const exact_copy in(terminated);
  octets wide(2 * terminated.size());
  const int32_t len =
      line_id_space_to_alias(reinterpret_cast<char*>(in.at.get()), reinterpret_cast<char*>(wide.data()));
  FUZZ_CHECK(len >= 0 && static_cast<size_t>(len) < wide.size(), "alias of %d octets", len);
  wide.resize(static_cast<size_t>(len) + 1);
  wide.back() = 0;
  char narrow[LINE_ID_ALIAS_LEN];
  const int32_t back = line_id_alias_to_space(reinterpret_cast<char*>(wide.data()), narrow);
  FUZZ_CHECK(back >= 0 && back <= static_cast<int32_t>(sizeof(narrow)), "%d octets without alias", back);
  if (plain.find('%') == std::string::npos && wide.size() <= sizeof(narrow)) {
    FUZZ_CHECK(plain == std::string_view(narrow, static_cast<size_t>(back)), "the alias does not come back");
  }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int32_t ready = line_id_init_params();
  template_case input;
  if (ready != 0 || !read_case(data, size, input)) return -1;
  write_letters(input);
  const octets expanded = expand(input.fmt);
  check_round_trip(input, expanded);

  line_id_reset_params(SET);
  const int32_t parsed = parse(input.fmt, to_octets(input.received));
  FUZZ_CHECK(parsed == LINE_ID_OK || parsed == LINE_ID_ERR_PARSE, "parsed with %d", parsed);
  check_letters();
  check_alias(input.received);
  return 0;
}
