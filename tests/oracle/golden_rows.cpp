// The rows of the golden frames. The texts are literals of this file.
#include "tests/oracle/golden_rows.h"

#include <cstring>

namespace {

octets old_option82(const char* circuit, const char* remote) {
  return join({tlv1(1, text(circuit)), tlv1(2, text(remote))});
}

octets old_vendor_tag(const char* circuit, const char* remote) {
  return join({{0, 0, 0x0D, 0xE9}, tlv1(1, text(circuit)), tlv1(2, text(remote))});
}

void custom(agent_config& config) {
  config.table.line_id_format_type = 0;
  std::strcpy(config.formats.circuit_id, "%a:%s.%c-%m (%F)");
  std::strcpy(config.formats.remote_id, "%h");
  std::strcpy(config.formats.option37, "%O/%h");
}
void cnc(agent_config& config) { config.table.line_id_format_type = 2; }
void plain(agent_config&) {}
void standard1(agent_config& config) { config.table.def_std_fmt_type = 1; }
void standard2(agent_config& config) { config.table.def_std_fmt_type = 2; }
void cnc2(agent_config& config) {
  cnc(config);
  standard2(config);
}
void always_anew(agent_config& config) {
  config.table.dhcp_circuitid_up_policy = config.table.dhcp_remoteid_up_policy = 1;
  config.table.pppoe_circuitid_up_policy = config.table.pppoe_remoteid_up_policy = 1;
}
void keep(agent_config& config) {
  config.table.dhcp_circuitid_up_policy = config.table.dhcp_remoteid_up_policy = 2;
  config.table.pppoe_circuitid_up_policy = config.table.pppoe_remoteid_up_policy = 2;
}

octets discover(frame_builder b) { return b.dhcp4(DISCOVER).option(53, {1}).option(55, {1, 3, 6}).end(); }
octets request_with(frame_builder b, const char* circuit, const char* remote) {
  return b.dhcp4(REQUEST).option(53, {3}).option(82, old_option82(circuit, remote)).option(55, {1, 3}).end();
}
octets padi(frame_builder b) { return b.pppoe(PADI).option(0x0101, {}).option(0x0103, {1, 2, 3, 4}).done(); }
octets padr_with(frame_builder b, const char* circuit, const char* remote) {
  return b.pppoe(PADR).option(0x0101, {}).option(0x0105, old_vendor_tag(circuit, remote)).done();
}
octets solicit(frame_builder b) { return b.dhcp6(SOLICIT).option(1, {0, 3, 0, 1, 2, 3}).option(8, {0, 0}).done(); }

constexpr char ONU_CIRCUIT[] = "0 0/0/0:9.8 x/0/0/0/0/0/0 0/0/0:eth/1/2 EP";

const golden ALL_ROWS[] = {
    {"insert, CTC 0", plain, discover, 1, "dhcp4", "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP", "ONU42"},
    {"insert, CTC 1", standard1, discover, 1, "dhcp4", "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 1/2/7 GP", "ONU42"},
    {"insert, CTC 2", standard2, discover, 1, "dhcp4", "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 1/2/7:eth/100/7 GP",
     "ONU42"},
    {"insert, CNC 0", cnc, discover, 1, "dhcp4", "0 0/0/0:100.200 ACC/an1/1/2/3/CARD/0/5 ONU42/N1 GP", "ONU42"},
    {"insert, CNC 2", cnc2, discover, 1, "dhcp4", "0 0/0/0:100.200 ACC/an1/1/2/3/CARD/0/5 ONU42/N1/1/2/7:eth/100/7 GP",
     "ONU42"},
    {"insert, custom", custom, discover, 1, "dhcp4", "an1:100.200-ONU42 (GP)", "00005e005301"},
    {"rewrite, CTC", plain, [](frame_builder b) { return request_with(b, ONU_CIRCUIT, "old"); }, 1, "dhcp4",
     "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 0/0/0:eth/1/2 GP", "ONU42"},
    {"rewrite, CTC, short text", plain, [](frame_builder b) { return request_with(b, "0/0/0:9.8", "old"); }, 1, "dhcp4",
     "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 ", "ONU42"},
    {"replace", always_anew, [](frame_builder b) { return request_with(b, ONU_CIRCUIT, "old"); }, 1, "dhcp4",
     "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP", "ONU42"},
    {"keep", keep, [](frame_builder b) { return request_with(b, "kept circuit", "kept remote"); }, 1, "dhcp4",
     "kept circuit", "kept remote"},
    {"PADI, CTC 0", plain, padi, 1, "pppoe", "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP", "ONU42"},
    {"PADI, CNC 0", cnc, padi, 1, "pppoe", "0 0/0/0:100.200 ACC/an1/1/2/3/CARD/0/5 ONU42/N1 GP", "ONU42"},
    {"PADI, custom", custom, padi, 1, "pppoe", "an1:100.200-ONU42 (GP)", "00005e005301"},
    {"PADR, rewrite", plain, [](frame_builder b) { return padr_with(b, ONU_CIRCUIT, "old"); }, 1, "pppoe",
     "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 0/0/0:eth/1/2 GP", "ONU42"},
    {"PADR, keep", keep, [](frame_builder b) { return padr_with(b, "kept circuit", "kept remote"); }, 1, "pppoe",
     "kept circuit", "kept remote"},
    {"PADI over 802.1ad", plain, [](frame_builder b) { return padi(b.vlan(10, 0x88A8).vlan(20)); }, 1, "pppoe",
     "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP", "ONU42"},
    {"SOLICIT, CTC", plain, solicit, 1, "dhcp6", "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 ", "ONU42"},
    {"SOLICIT, CNC", cnc, solicit, 1, "dhcp6", "0 0/0/0:100.200 olt/an1/1/2/3/CARD/0/5/ONU42/ ", "ONU42"},
    {"SOLICIT, custom", custom, solicit, 1, "dhcp6", "an1:100.200-ONU42 (GP)", "0/00005e005301"},
    {"REPLY unwrapped", plain,
     [](frame_builder b) {
       return b.relay6(RELAY_REPL, 0, link_local(1)).option(9, dhcp6_message(REPLY, {tlv2(2, {0, 3, 0, 1})})).done();
     },
     2, "dhcp6", "", ""},
};

} // namespace

std::span<const golden> golden_rows() { return ALL_ROWS; }

frame_builder tagged(uint32_t tags) {
  frame_builder builder = eth();
  for (uint32_t i = 0; i < tags; ++i) builder.vlan(static_cast<uint16_t>(100 + i));
  return builder;
}
