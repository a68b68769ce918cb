// Templates: check, expansion, reverse parsing, alias.
#include "lineid/format.h"
#include "tests/unit/lineid/lineid_test.h"

#include <memory>

namespace {

using format_test = lineid_test;
using namespace std::string_literals;

std::string expand(int32_t set, const std::string& fmt) {
  char out[256] = {};
  const int32_t len = line_id_print_format(set, fmt.c_str(), out);
  if (len < 0) return std::to_string(len);
  EXPECT_EQ(std::string(out + len, sizeof(out) - len), std::string(sizeof(out) - len, '\0')) << fmt; // zeros behind it
  return std::string(out, static_cast<size_t>(len));
}

TEST_F(format_test, the_checker_wants_a_delimiter_behind_each_reference) {
  const char* const good[] = {"",
                              "plain",
                              "%a",
                              "%a ",
                              "%a_",
                              "%a %b",
                              "x%",
                              "%",
                              "%_",
                              "%%",
                              "%1a",
                              "%%a b",
                              "%a.%b/%c:%d;%e[%f]%g{%h}%i<%j>%k(%l)%m-%n_%o"};
  for (const char* fmt : good) EXPECT_EQ(line_id_check_format(fmt), 0) << fmt;
  for (const char* fmt : {"%a%_", "%a%b", "%ab", "%a,", "%a b%cd", "%%ab", "%a\x80"}) {
    EXPECT_EQ(line_id_check_format(fmt), -161) << fmt;
  }
  EXPECT_EQ(line_id_check_format(nullptr), -161);
  EXPECT_EQ(line_id_check_delimiter('\0'), 0);
}

TEST_F(format_test, expansion_copies_literals_and_puts_texts_in) {
  fill(7);
  line_id_write_param(7, 'b', "", 1);
  line_id_write_param(7, 'd', "flag 0", 0);
  const std::pair<const char*, std::string> rows[] = {
      {"", ""},        {"a b", "a b"},     {"%a", "an1"},     {"%a%m!", "an1ONU42!"}, {"<%Y>", "<0>"},
      {"%b", "0"},     {"%d", "flag 0"},   {"%%a", "%%a"},    {"%_%_", "%_%_"},       {"%1%[", "%1%["},
      {"x%", "x%\0"s}, {"%a%", "an1%\0"s}, {"%%%", "%%%\0"s},
  };
  for (const auto& [fmt, text] : rows) EXPECT_EQ(expand(7, fmt), text) << fmt;
  EXPECT_EQ(expand(6, "%a"), "0");
  EXPECT_EQ(expand(-1, ""), "-31");
  EXPECT_EQ(expand(36, ""), "-31");
  char out[1] = {};
  EXPECT_EQ(line_id_print_format(0, nullptr, out), -9);
  EXPECT_EQ(line_id_print_format(0, "", nullptr), -9);
}

TEST_F(format_test, expansion_stops_at_248_octets) {
  const std::string fifty(50, 'v');
  line_id_write_param(0, 'm', fifty.c_str(), 1);
  const auto lit = [](size_t n) { return std::string(n, '.'); };
  const std::pair<std::string, std::string> rows[] = {
      {lit(300), lit(248)},
      {lit(198) + "%m", lit(198) + fifty},
      {lit(198) + "%m%Y", lit(198) + fifty},
      {lit(199) + "%m", lit(199)},
      {lit(199) + "%m tail", lit(199)}, // a value is never cut, and nothing follows it
      {lit(247) + "%Y.", lit(247) + "0"},
      {lit(246) + "%%", lit(246) + "%%"},
      {lit(247) + "%%", lit(247)},
      {lit(246) + "%", lit(246) + "%\0"s},
      {lit(247) + "%", lit(247)},
      {"%m%m%m%m%m%Y", fifty + fifty + fifty + fifty},
  };
  for (const auto& [fmt, text] : rows) EXPECT_EQ(expand(0, fmt), text) << fmt;
  char exact[248];
  EXPECT_EQ(line_id_expand_template(0, lit(300), exact), 248);
}

TEST_F(format_test, numbers_are_written_anywhere_in_a_text) {
  for (const int32_t number : {0, 9, 10, 99, 100, 987, 1000, 9090, 10000, 65535, 999999, 1000000, -7, INT32_MIN}) {
    for (const size_t in_front : {0, 16, 17, 182, 183, 200}) {
      line_id_put_number(g_params[5], 's', number);
      const std::string literal(in_front, '.');
      const std::string digits = std::to_string(number);
      EXPECT_EQ(expand(5, literal + "%s/%s"), literal + digits + "/" + digits) << in_front;
    }
  }
}

// Each has code of its own, which leaves what is not short to the general way.
TEST_F(format_test, built_in_templates_expand_as_any_other) {
  const std::string texts[] = {"", "x", std::string(16, 'y'), std::string(17, 'z'), std::string(50, 'w')};
  const int32_t numbers[] = {0, 42, 999, 1000, 65535, 999999, 1000000, -1};
  const uint8_t mac[] = {0, 0, 0x5E, 0, 0x53, 0x42};
  for (uint32_t number = 0; number < LINE_ID_STANDARDS; ++number) {
    const std::string_view fmt = line_id_standard_template(number);
    for (uint32_t round = 0; round < 400; ++round) {
      line_id_param_set& letters = g_params[7];
      uint64_t random = round * 0x9E3779B97F4A7C15;
      for (size_t at = fmt.find('%'); at != fmt.npos; at = fmt.find('%', at + 1), random = random * 25214903917 + 11) {
        const auto pick = static_cast<uint32_t>(random >> 40);
        const char letter = fmt[at + 1];
        if (round < 20 || pick % 2 == 0) { // at first texts alone, up to the longest of them all
          const uint32_t text = round < 20 ? round % 5 : pick / 2 % 3;
          line_id_write_param(7, letter, texts[text].c_str(), 1);
        } else if (pick % 64 == 1) {
          line_id_put_mac(letters, letter, mac);
        } else {
          line_id_put_number(letters, letter, numbers[pick / 2 % (round % 2 == 0 ? 6 : 8)]);
        }
      }
      char out[256] = {};
      const int32_t len = line_id_expand_standard_untraced(letters, number, out);
      char expected[256] = {};
      ASSERT_EQ(len, line_id_expand_template(7, fmt, expected)) << fmt << round;
      ASSERT_EQ(std::string(out, sizeof(out)), std::string(expected, sizeof(expected))) << fmt << round;
    }
  }
}

TEST_F(format_test, a_text_shows_nothing_of_what_its_buffer_held) {
  char text[LINE_ID_TEXT_SIZE];
  std::memset(text, 'w', sizeof(text));
  for (size_t len = 50; len > 0; --len) {
    line_id_put_text(g_params[0], 'm', text, len);
    EXPECT_EQ(expand(0, "%m"), std::string(len, 'w'));
    EXPECT_EQ(expand(0, "%m.%m"), std::string(len, 'w') + "." + std::string(len, 'w'));
  }
}

TEST_F(format_test, a_template_that_changes_in_place_expands_anew) {
  const std::pair<const char*, const char*> rows[] = {// templates of one length
                                                      {"a-b-c", "a-b-c"},
                                                      {"%b-%b", "text-text"},
                                                      {"a-%b-", "a-text-"},
                                                      {"%%b-c", "%%b-c"}};
  line_id_write_param(7, 'b', "text", 1);
  char out[256] = {};
  std::string fmt(5, ' ');
  for (const auto& [changed, text] : rows) {
    fmt.assign(changed);
    ASSERT_EQ(line_id_expand_template(7, fmt, out), static_cast<int32_t>(std::strlen(text)));
    EXPECT_STREQ(out, text); // nothing is left behind it
  }
}

TEST_F(format_test, a_stored_template_may_fill_its_field) {
  const std::unique_ptr<char[][256]> field(new char[1][256]);
  std::memset(field[0], '.', 256);
  std::memcpy(field[0] + 254, "%a", 2);
  EXPECT_EQ(line_id_template_view(field[0]).size(), 256U);
  field[0][3] = '\0';
  EXPECT_EQ(line_id_template_view(field[0]), "...");
}

TEST_F(format_test, parsing_picks_the_free_letters_out_of_a_text) {
  const std::string fifty(50, 'w');
  const struct {
    const char* fmt;
    std::string text;
    const char* set; // letters with the flag 1 and the text "S"
    int32_t result;
    std::string found; // the texts of s, c and a
  } rows[] = {
      {"0 0/0/0:%s.%c %a", "0 0/0/0:10.20 x", "", 0, "|10|20|x|"},
      {"0 0/0/0:%s.%c %a", "0 0/0/0:10.20 x", "c", 0, "|10|S|x|"},
      {"0 0/0/0:%s.%c %a", "0 0/0/0:10.20 x", "sca", 0, "|S|S|S|"},
      {"0 0/0/0:%s.%c %a", "0 0/0/1:10.20 x", "", -160, "||||"},
      {"%s.%c-%a", "10.20+x", "", -160, "|10|20+x||"},
      {"%s.%c-%a", "10.20+x", "c", -160, "|10|S||"},
      {"%s.x", "10.y", "", -160, "|10|||"}, // what was found stays
      {"%s.", "10.", "", 0, "|10|||"},
      {"%s.", "10", "", -160, "|10|||"},
      {"%s.", "10", "s", -160, "|S|||"},
      {"%s.%c", "10.", "", 0, "|10|||"},
      {"%s.%c", "", "", -160, "||||"},
      {"%s", "", "", 0, "||||"},
      {"ab", "a", "", -160, "||||"},
      {"a", "abc", "", 0, "||||"},
      {"%s tail", "10 tai", "", -160, "|10|||"},
      {"%s", fifty + "z", "", 0, "|" + fifty + "|||"},
      {"%s.%c", fifty + "zz.9", "", 0, "|" + fifty + "|9||"},
      {"%%s", "%x", "", 0, "|x|||"}, // the second "%" is a reference here
      {"%_", "%_", "", 0, "||||"},
      {"%_", "x_", "", -160, "||||"},
      {"x%", "x", "", 0, "||||"},
      {"%s%c", "10%c", "", 0, "|10|||"},
      {"%s", "1\0"s + "2", "", 0, "|1|||"},
      {"", "anything", "", 0, "||||"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.fmt) + " <- " + row.text);
    line_id_init_params();
    for (const char* letter = row.set; *letter != '\0'; ++letter) line_id_write_param(11, *letter, "S", 1);
    const std::unique_ptr<char[]> exact(new char[row.text.size()]);
    std::memcpy(exact.get(), row.text.data(), row.text.size());
    EXPECT_EQ(line_id_parse_params(11, row.fmt, exact.get(), static_cast<uint32_t>(row.text.size())), row.result);
    EXPECT_EQ(texts(11, "sca"), row.found);
    EXPECT_EQ(g_params[11].flag['s' - 'A'], std::string(row.set).starts_with('s') ? 1 : 0);
  }
  EXPECT_EQ(line_id_parse_params(36, "%s", "1", 1), -1);
}

TEST_F(format_test, parsing_fills_a_free_letter_that_has_a_text_or_no_buffer) {
  line_id_write_param(0, 'P', "7", 0);
  line_id_write_param(0, 'm', "", 1); // empty, yet set
  line_id_set_param(0, 's', nullptr);
  EXPECT_EQ(line_id_parse_params(0, "%P/%m/%s", "99/x/10", 7), 0);
  EXPECT_EQ(texts(0, "Pms"), "|99||10|");
  line_id_set_param(0, 's', nullptr);
}

TEST_F(format_test, the_nth_occurrence_is_found_within_the_length) {
  EXPECT_EQ(line_id_get_pos("a/b/c/", '/', 3, 6), 5);
  EXPECT_EQ(line_id_get_pos("a/b/c/", '/', 3, 5), -1);
}

TEST_F(format_test, spaces_travel_as_an_alias) {
  const struct {
    const char *alias, *spaces, *alias_again;
  } rows[] = {
      {"a%_b", "a b", "a%_b"}, {"%_%_", "  ", "%_%_"}, {"%a%_%b", "%a %b", "%a%_%b"},
      {"%%_", "%%_", "%%_"},   {"x%", "x%", "x%"},     {"a b", "a b", "a%_b"},
  };
  for (const auto& row : rows) {
    char out[64] = {};
    char back[64] = {};
    EXPECT_EQ(line_id_alias_to_space(row.alias, out), static_cast<int32_t>(std::strlen(row.spaces)));
    EXPECT_STREQ(out, row.spaces);
    EXPECT_EQ(line_id_space_to_alias(row.spaces, back), static_cast<int32_t>(std::strlen(row.alias_again)));
    EXPECT_STREQ(back, row.alias_again);
  }
  EXPECT_EQ(line_id_alias_to_space(nullptr, nullptr), -9);
  EXPECT_EQ(line_id_space_to_alias(nullptr, nullptr), -9);
}

TEST_F(format_test, the_alias_stays_within_1024_octets) {
  const struct {
    std::string in;
    size_t len;
    char last;
  } rows[] = {
      {std::string(1024, 'x'), 1024, 'x'},
      {std::string(1023, 'x') + "%y", 1024, '%'}, // a pair that does not fit is cut
      {std::string(1023, 'x') + "%_", 1024, '%'},
      {std::string(1022, 'x') + "%_", 1023, ' '},
      {std::string(1022, 'x') + "%_z", 1023, ' '}, // 1024 octets are consumed
  };
  for (const auto& row : rows) {
    const std::unique_ptr<char[]> in(new char[1024]); // as much as may be read
    std::memcpy(in.get(), row.in.data(), 1024);
    const std::unique_ptr<char[]> out(new char[1024]);
    ASSERT_EQ(line_id_alias_to_space(in.get(), out.get()), static_cast<int32_t>(row.len));
    EXPECT_EQ(out[row.len - 1], row.last);
  }
}

} // namespace
