// Numbered template profiles of an instance: a frame that the host has assigned to one takes its templates from there.
// The worker only.
#pragma once

#include "include/line_id.h"

#include <cstdint>

// Kinds of profile.
constexpr uint8_t LINE_ID_PROFILE_CIRCUIT = 0;
constexpr uint8_t LINE_ID_PROFILE_REMOTE = 1;

// The circuit template of a profile.
constexpr uint8_t LINE_ID_TEMPLATE_OWN = 0; // the profile's own text
constexpr uint8_t LINE_ID_TEMPLATE_CTC = 1;
constexpr uint8_t LINE_ID_TEMPLATE_CNC = 2;

// ---- store; an instance above 8 is refused with -147

// Profile 0 to 64: 0, or -1 for another. A remote profile takes `text`; a circuit profile takes it for template 0,
// takes the CTC or CNC templates for 1 and 2, and loses its text for others. Another kind changes nothing and gives 0.
int32_t line_id_set_circuit_id_vlan_fmt_cfg(uint8_t oltid, uint8_t type, uint32_t prof_id, uint32_t cirt_template,
                                            const char (&text)[LINE_ID_FORMAT_LEN]);
// Profile 1 to 64: 0, or -1 for another. Another kind changes nothing and gives 0.
int32_t line_id_del_circuit_id_vlan_fmt_cfg(uint8_t oltid, uint8_t type, uint32_t prof_id);
// Print the profiles 1 to 64. Always 0.
int32_t line_id_show_circuit_id_vlan_format_cfg(uint8_t oltid);

// ---- message handlers, as in config/message_server.h

// Payload: type u8, prof_id u32, cirt_template u32, 1 to 256 octets of text. 0; -9 null, -157 length, -112 profile.
int32_t line_id_set_lineid_vlan_prof_proc(uint8_t oltid, const uint8_t* payload, int32_t len);
// Payload: type u8, prof_id u32. 0; -9 null, -112 length or profile.
int32_t line_id_del_lineid_vlan_prof_proc(uint8_t oltid, const uint8_t* payload, int32_t len);
