// Writes the seeds of all fuzz targets: fuzz_seeds FOLDER makes FOLDER/NAME/* from the golden frames.
#include "fuzz/case.h"
#include "tests/oracle/golden_rows.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

int LLVMFuzzerTestOneInput(const uint8_t*, size_t) { return 0; } // this program has no input

namespace {

namespace fs = std::filesystem;

fs::path g_folder;
std::map<std::string, int> g_counts;

void write_seed(const std::string& target, const octets& seed) {
  fs::create_directories(g_folder / target);
  std::ofstream file(g_folder / target / std::to_string(g_counts[target]++), std::ios::binary);
  file.write(reinterpret_cast<const char*>(seed.data()), static_cast<std::streamsize>(seed.size()));
}

void write_case(const std::string& target, const fuzz_case& seed) { write_seed(target, fuzz_write(seed)); }

octets until_terminator(const char* text_field) { return text({text_field, std::strlen(text_field)}); }

fuzz_case plain_case() {
  fuzz_case seed = {};
  seed.settings.line = test_line();
  seed.settings.ways = WAY_MEND;
  seed.circuit = text("%a:%s.%c-%m (%F)");
  seed.remote = text("%m");
  return seed;
}

// A golden row as an input: its configuration in the input's own terms.
fuzz_case case_of(const golden& row, uint32_t tags) {
  agent_config config = agent_defaults();
  row.configure(config);
  const line_id_ex_cfg_table& table = config.table;
  fuzz_case seed = plain_case();
  seed.settings.down = row.direct == LINE_ID_DOWNSTREAM ? 1 : 0;
  seed.settings.formats = static_cast<uint8_t>((table.line_id_format_type + 2) % 3 | table.def_std_fmt_type << 4);
  seed.settings.policies = static_cast<uint8_t>(table.dhcp_circuitid_up_policy | table.dhcp_remoteid_up_policy << 4);
  if (table.line_id_format_type == 0) seed.circuit = until_terminator(config.formats.circuit_id);
  seed.remote = until_terminator(config.formats.remote_id);
  seed.frame = row.frame(tagged(tags));
  return seed;
}

octets vendor_tag(const octets& sub_options) { return join({{0, 0, 0x0D, 0xE9}, sub_options}); }

// Ways that the golden rows do not go.
void write_frame_variants() {
  const octets ids = join({tlv1(1, text("0 0/0/0:9.8 x/0/0/0/0/0/0 0/0/0:eth/1/2 EP")), tlv1(2, text("old"))});
  const auto up = [](const std::string& target, const octets& frame, auto change) {
    fuzz_case seed = plain_case();
    seed.frame = frame;
    change(seed.settings);
    write_case(target, seed);
  };
  const auto nothing = [](fuzz_settings&) {};
  const auto by_vlan = [](fuzz_settings& set) { set.line.ext[LINE_ID_EXT_CIRCUIT_BY_VLAN] = 1; };
  const auto spoofed = [](fuzz_settings& set) { set.spoofing = SPOOF_DHCP | SPOOF_PPPOE | SPOOF_OTHER_FIRST | 16; };
  const auto down = [](fuzz_settings& set) { set.down = 1, set.strips = STRIP_PPPOE | STRIP_DHCP6_TWICE; };
  const auto wrapped = [](fuzz_settings& set) { set.strips = STRIP_LEVEL_0; };
  const auto listed = [](fuzz_settings& set) { set.white_list = 15, set.formats = 2; };
  const auto profile = [](fuzz_settings& set) { set.line.ext[LINE_ID_EXT_CID] = set.line.ext[LINE_ID_EXT_RID] = 1; };

  const octets request = eth().dhcp4(REQUEST).option(53, {3}).option(230, {0, 1, 0, 2}).option(82, ids).end();
  for (const auto& change : {+by_vlan, +spoofed, +listed, +profile}) up("dhcp4", request, change);
  up("dhcp4", eth().dhcp4(OFFER).option(53, {2}).option(82, ids).end(), down);
  const octets padr = eth().pppoe(PADR).option(0x5516, {0, 1, 0, 2}).option(0x0105, vendor_tag(ids)).done();
  for (const auto& change : {+by_vlan, +spoofed, +listed, +profile}) up("pppoe", padr, change);
  up("pppoe", eth().pppoe(PADS).option(0x0101, {}).option(0x0105, vendor_tag(ids)).padded(9), down);
  up("pppoe", eth().pppoe(PADT, 7).option(0x5516, {0, 1, 0, 2}).done(), spoofed);
  const octets relayed =
      eth().relay6(RELAY_FORW, 1, link_local(7)).option(9, dhcp6_message(SOLICIT)).option(18, ids).done();
  up("dhcp6", relayed, nothing);
  up("dhcp6", relayed, wrapped);
  const octets inner = relay6_message(RELAY_REPL, 0, link_local(8), {tlv2(9, dhcp6_message(REPLY))});
  up("dhcp6", eth().relay6(RELAY_REPL, 1, link_local(7)).option(9, inner).done(), down);
}

void write_texts() {
  const octets tail = text("0 0/0/0:9.8 x/0/0/0/0/0/0 0/0/0:eth/1/2 EP");
  for (uint8_t format = 0; format < 3; ++format) {
    fuzz_case seed = plain_case();
    seed.settings.formats = format;
    seed.frame = tlv1(1, format == 2 ? text("an9:1.2-ONU7 (EP)") : tail);
    write_case("circuit_id", seed);
    seed.settings.form = LINE_ID_FORM_XGS;
    seed.settings.ways |= WAY_IDENTITY;
    write_case("circuit_id", seed);
  }
  const octets letters = text("100ONU42N1GP");
  write_seed("template", join({{16, 3, 5, 2, 2}, text("%s/%m-%n (%F)%%x"), letters, text("1/2-3 (4)%_x y")}));
  write_seed("template", join({{13, 3, 5, 2, 2}, text("id %m:%s.%n;%"), letters, text("id a:b.c;")}));
}

void write_commands() {
  octets all;
  for (uint8_t code = 0; code < 56; ++code) { // every code with one octet, then its answer
    const octets set_and_get = {0, 0, code, 0, 1, 1, 0, 0, 0, 1, 0, code, 0, 0, code};
    write_seed("commands", set_and_get);
    if (code % 4 == 0) all = join({all, set_and_get});
  }
  write_seed("commands", all);
  for (uint8_t kind = 3; kind < 6; ++kind) { // a frame, its message forged and repeated
    write_seed("commands", {3, 0, 1, kind, 2, kind, 0, 0, 0, 0, 8, 0, 0, 0, 1, 2, kind, 0, 0, 0, 0, 8, 0, 0, 0, 3, 4});
  }
  for (uint8_t code = 0; code < 8; ++code) write_seed("commands", {2, 2, 0, code, 0, 0, 0, 0, 0, 0, 1, 4}); // shows
  write_seed("commands", join({{0, 0, 6, 0, 64}, octets(256, '%')}));
  // A profile set, in a frame, and deleted; a frame that is passed on. The last profile, and the first that is none.
  for (const uint8_t profile : {uint8_t{64}, uint8_t{65}}) {
    const octets add = {0, 0, 48, 0, 13, 0, profile, 0, 0, 0, 0, 0, 0, 0, '%', 'm', ':', 'x'};
    const octets remove = {0, 0, 49, 0, 5, 0, profile, 0, 0, 0};
    write_seed("commands", join({add, octets(39, 0), {3, 0, profile, 0, 4}, remove, octets(15, 0), {3, 0, 0, 128, 4}}));
  }
}

void put32(octets& out, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<uint8_t>(value >> shift));
}

// A capture of a golden frame: pcap with microseconds and with nanoseconds.
void write_capture(const octets& frame, uint32_t magic) {
  octets out;
  for (const uint32_t word : {magic, 2 | 4U << 16, 0U, 0U, 65535U, 1U, 1U, 2U}) put32(out, word);
  put32(out, static_cast<uint32_t>(frame.size()));
  put32(out, static_cast<uint32_t>(frame.size()));
  write_seed("capture", join({out, frame}));
}

// Line maps at a limit, and one beyond it.
void write_line_maps() {
  const std::string agent = "[device]\nolt_slot = 1\n[[instance]]\n";
  for (const size_t beyond : {0, 1}) {
    std::string types;
    for (size_t i = 0; i < LINE_ID_WHITE_LIST_TYPES + beyond; ++i) types += "7,";
    const std::string id(LINE_ID_TEXT_SIZE - 1 + beyond, 'x');
    for (const std::string& map : {
             agent + "[white_list]\nonu_types = [" + types + "]\n[[line]]\ndefault = true\n",
             agent + "[[line]]\ndefault = true\nonu_id = \"" + id + "\"\n",
             agent + "[[line]]\nvlans = [\"" + std::to_string(4095 + beyond) + ".1\"]\n",
         }) {
      write_seed("line_map", text(map));
    }
  }
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: fuzz_seeds FOLDER\n", stderr);
    return 2;
  }
  g_folder = argv[1];
  for (const golden& row : golden_rows()) {
    for (uint32_t tags = 0; tags <= 2; ++tags) write_case(row.protocol, case_of(row, tags));
    write_capture(row.frame(tagged(1)), g_counts["capture"] % 2 == 0 ? 0xA1B2C3D4 : 0xA1B23C4D);
  }
  write_frame_variants();
  write_texts();
  write_commands();
  write_line_maps();
  return 0;
}
