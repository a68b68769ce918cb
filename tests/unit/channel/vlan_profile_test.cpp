// VLAN profiles: requests, what they store, and the report.
#include "config/vlan_profile.h"

#include "config/store.h"
#include "tests/unit/channel/channel_test.h"

#include <cstring>

namespace {

class vlan_profile_test : public channel_test {
protected:
  static int32_t request(int32_t (*handler)(uint8_t, const uint8_t*, int32_t), const std::string& body) {
    return handler(2, reinterpret_cast<const uint8_t*>(body.data()), static_cast<int32_t>(body.size()));
  }
  static std::string body_of(uint8_t type, uint32_t prof_id) {
    std::string body(5, static_cast<char>(type));
    std::memcpy(body.data() + 1, &prof_id, 4);
    return body;
  }
  static int32_t add(uint8_t type, uint32_t prof_id, uint8_t cirt_template, const std::string& text) {
    return request(line_id_set_lineid_vlan_prof_proc,
                   body_of(type, prof_id) + std::string(1, static_cast<char>(cirt_template)) + padded("", 3) + text);
  }
  static int32_t remove(uint8_t type, uint32_t prof_id) {
    return request(line_id_del_lineid_vlan_prof_proc, body_of(type, prof_id));
  }
  // Template type, circuit text, remote text.
  static std::string profile(uint32_t prof_id) {
    const line_id_common_cfg& cfg = g_line_id_common_cfg[2];
    const char* circuit = cfg.vlan_circuit_format[prof_id];
    const char* remote = cfg.vlan_remote_format[prof_id];
    return std::to_string(cfg.vlan_template[prof_id]) + "|" + std::string(circuit, strnlen(circuit, 256)) + "|" +
           std::string(remote, strnlen(remote, 256));
  }
};

TEST_F(vlan_profile_test, add_and_delete) {
  const std::string longest(256, 'x');
  const struct {
    const char* what;
    bool adds;
    uint8_t type;
    uint32_t prof_id;
    uint8_t cirt_template;
    std::string text;
    std::string after;
  } rows[] = {
      {"own circuit text", true, 0, 1, 0, "%a", "0|%a|"},
      {"a text as long as the field", true, 0, 64, 0, longest, "0|" + longest + "|"},
      {"both", true, 1, 64, 0, longest, "0|" + longest + "|" + longest},
      {"CTC", true, 0, 2, 1, "ignored", "1|ctc|"},
      {"CNC", true, 0, 3, 2, "ignored", "2|cnc|"},
      {"a remote text leaves the type", true, 1, 3, 1, "%m", "2|cnc|%m"},
      {"an unknown template empties the text and keeps the type", true, 0, 2, 3, "%a", "1||"},
      {"an unknown kind changes nothing and succeeds", true, 2, 3, 0, "%a", "2|cnc|%m"},
      {"profile 0 is stored", true, 1, 0, 0, "zero", "0||zero"},
      {"a shorter text leaves nothing of the former one", true, 0, 1, 0, "b", "0|b|"},
      {"delete circuit", false, 0, 3, 0, "", "0||%m"},
      {"delete remote", false, 1, 3, 0, "", "0||"},
      {"delete an unknown kind", false, 2, 1, 0, "", "0|b|"},
  };
  for (const auto& row : rows) {
    const int32_t ret =
        row.adds ? add(row.type, row.prof_id, row.cirt_template, row.text) : remove(row.type, row.prof_id);
    EXPECT_EQ(ret, 0) << row.what;
    EXPECT_EQ(profile(row.prof_id), row.after) << row.what;
  }
}

TEST_F(vlan_profile_test, refusals) {
  const std::vector<std::string> full = {"Vlan-based line-id cfg profile-id is out, profile-id:65\r\n",
                                         "Vlan-based lineid cfg is full.\r\n"};
  EXPECT_EQ(add(0, 65, 0, "%a"), -112);
  EXPECT_EQ(log_lines, full);
  EXPECT_EQ(add(1, 0xFFFFFFFF, 0, "%a"), -112);
  log_lines.clear();
  EXPECT_EQ(remove(0, 0), -112);
  EXPECT_EQ(log_lines, (std::vector<std::string>{"Vlan-based line-id cfg profile-id is out, profile-id:0\r\n",
                                                 "Vlan-based lineid cfg not exist!\r\n"}));
  EXPECT_EQ(remove(1, 65), -112);
  EXPECT_EQ(add(0, 1, 0, ""), -157) << "9 octets";
  EXPECT_EQ(add(0, 1, 0, std::string(257, 'x')), -157);
  EXPECT_EQ(profile(1), "0||");
  const char text[256] = {};
  EXPECT_EQ(line_id_set_circuit_id_vlan_fmt_cfg(9, 0, 1, 0, text), -147);
  EXPECT_EQ(line_id_del_circuit_id_vlan_fmt_cfg(255, 0, 1), -147);
}

TEST_F(vlan_profile_test, report) {
  add(0, 1, 0, std::string(256, 'c'));
  add(1, 1, 0, std::string(256, 'r'));
  add(0, 64, 2, "x");
  testing::internal::CaptureStdout();
  line_id_show_circuit_id_vlan_format_cfg(2);
  const std::string text = testing::internal::GetCapturedStdout();
  const std::string begins =
      "\r\nCircuit Id Vlan Format:\r\n\r\nCircuit Id oltid is: 2\r\ntemplate[ 1]:0, cirt_fmt[ 1]:" +
      std::string(256, 'c') + ", rmt_fmt[ 1]:" + std::string(256, 'r') +
      "\r\ntemplate[ 2]:0, cirt_fmt[ 2]:, rmt_fmt[ 2]:\r\n";
  EXPECT_EQ(text.substr(0, begins.size()), begins);
  const std::string ends = "\r\ntemplate[64]:2, cirt_fmt[64]:cnc, rmt_fmt[64]:\r\n";
  ASSERT_GT(text.size(), ends.size());
  EXPECT_EQ(text.substr(text.size() - ends.size()), ends);
}

} // namespace
