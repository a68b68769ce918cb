// An identifier's text: twelve fields, eight of them numbers, into some sixty characters.
#include "bench/targets.h"
#include "lineid/format.h"
#include "lineid/params.h"

#include <charconv>
#include <cstdio>
#include <cstring>

namespace {

constexpr char NODE[] = "access-node-17";
constexpr char ONU[] = "ONU00042";
constexpr char KIND[] = "GP";
constexpr char NAME[] = "residential";
constexpr std::string_view TEMPLATE = "%a %r/%f/%S/%p:%s.%c %o/%g/%x %m %F %n";

// The same numbers for everybody; they change, so that nothing can be kept.
struct numbers {
  int32_t at[9];
};

numbers numbers_of(uint32_t i) {
  const auto n = static_cast<int32_t>(i);
  return {{1, 2, 3 + n % 7, 5 + n % 9, 100 + n % 3900, 200 + n % 3800, n % 128, 1000 + n % 1000, n % 24}};
}

void by_template(uint32_t times) {
  char out[LINE_ID_IDENTIFIER_LEN] = {};
  for (uint32_t i = 0; i < times; ++i) {
    const numbers of = numbers_of(i);
    for (uint32_t letter = 0; letter < 9; ++letter) line_id_put_number(g_params[0], "rfSpscogx"[letter], of.at[letter]);
    keep(line_id_expand_template(0, TEMPLATE, out));
    keep(out);
  }
}

void by_snprintf(uint32_t times) {
  char out[LINE_ID_IDENTIFIER_LEN] = {};
  for (uint32_t i = 0; i < times; ++i) {
    const auto& n = numbers_of(i).at;
    keep(std::snprintf(out, sizeof(out), "%s %d/%d/%d/%d:%d.%d %d/%d/%d %s %s %s", NODE, n[0], n[1], n[2], n[3], n[4],
                       n[5], n[6], n[7], n[8], ONU, KIND, NAME));
    keep(out);
  }
}

void by_to_chars(uint32_t times) {
  char out[LINE_ID_IDENTIFIER_LEN] = {};
  for (uint32_t i = 0; i < times; ++i) {
    const numbers of = numbers_of(i);
    char* p = out;
    const auto add = [&p](std::string_view text) {
      std::memcpy(p, text.data(), text.size());
      p += text.size();
    };
    add(NODE);
    for (uint32_t field = 0; field < 9; ++field) {
      *p++ = " ///:. //"[field];
      p = std::to_chars(p, p + 12, of.at[field]).ptr;
    }
    for (const std::string_view text : {ONU, KIND, NAME}) {
      *p++ = ' ';
      add(text);
    }
    keep(out);
  }
}

} // namespace

void measure_text(report& into) {
  line_id_init_params();
  line_id_write_param(0, 'a', NODE, 1);
  line_id_write_param(0, 'm', ONU, 1);
  line_id_write_param(0, 'F', KIND, 1);
  line_id_write_param(0, 'n', NAME, 1);
  const group_result found = into.add_group(
      "identifier text", {{"template", by_template}, {"snprintf", by_snprintf}, {"to_chars", by_to_chars}});
  into.add_ratio("snprintf / template", "12 fields", found, "snprintf", "template", 5, true);
}
