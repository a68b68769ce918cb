// The rewriting of a line-identity option: DHCPv4's Option 82 and PPPoE's vendor tag differ in a few facts, which a
// rule holds; what is done to them is the same.
//
// An option is code, length and, for PPPoE, the vendor id, then the sub-options 1 (Circuit-ID) and 2 (Remote-ID). A new
// one is built in a bounded buffer and put into the output frame only when it is whole and fits. The worker only.
#pragma once

#include "core/records.h"

// Operations on an option and on its sub-options.
enum line_id_operation : uint8_t {
  OPERATION_KEEP = 0,
  OPERATION_INSERT = 1,
  OPERATION_MODIFY = 2,
  OPERATION_REPLACE = 3,
  OPERATION_REMOVE = 4,
};

struct line_id_option_rule {
  uint8_t log;
  uint8_t head_len;     // octets in front of the sub-options
  uint8_t value_offset; // octets in front of what the length field counts
  bool needs_rest;      // something must follow the option: at least DHCPv4's End
  uint32_t max_value_len;
  int32_t (*circuitid_up_policy)();
  int32_t (*remoteid_up_policy)();
  int32_t (*dn_strip)();
  void (*write_head)(uint8_t* option, uint32_t value_len);
  void (*close)(const line_id_inf_info* info); // of a rewritten frame, or null when the caller closes it
  // What traces call things.
  const char* option_name;
  const char* packet_name;
  const char* circuit_id_step;
  const char* replace_step;
  int32_t replace_code; // of an option without identifiers that could not be replaced
};

// Write one sub-option at `dest`, which has room for 258 octets, and store its whole length, 0 for none. `old` is the
// received one with its header, or null. The up policy and the identifier's enable come before `op`. 0, or the
// builder's code.
int32_t line_id_option_circuit_id(const line_id_option_rule& rule, uint8_t oltid, const uint8_t* old, uint16_t old_len,
                                  uint8_t* dest, uint16_t* new_len, uint8_t op, line_id_inf_info* info);
int32_t line_id_option_remote_id(const line_id_option_rule& rule, uint8_t oltid, const uint8_t* old, uint16_t old_len,
                                 uint8_t* dest, uint16_t* new_len, uint8_t op, line_id_inf_info* info);

// Rewrite the option at `old` in the received frame, whose whole length is `old_len`; the output frame and its length
// change only on success. An insertion replaces an option of length 0. Replace and modify: 0; -9 null; -107 Circuit-ID,
// -108 Remote-ID; -109 a sub-option runs past the option; -40 value too long; -39 frame too long; -1 Remote-ID too long
// to be kept behind a new Circuit-ID; the rule's own code.
int32_t line_id_option_remove(const line_id_option_rule& rule, const uint8_t* old, uint32_t old_len,
                              line_id_inf_info* info);
int32_t line_id_option_replace(const line_id_option_rule& rule, uint8_t oltid, const uint8_t* old, uint32_t old_len,
                               line_id_inf_info* info);
int32_t line_id_option_modify(const line_id_option_rule& rule, uint8_t oltid, const uint8_t* old, uint32_t old_len,
                              line_id_inf_info* info);

// Carry out an operation. Insert, replace and modify become a removal when the line's circuit-id is based on VLAN;
// removal is -1 unless the strip setting is 1; keep and unknown operations do nothing.
int32_t line_id_option_operate(const line_id_option_rule& rule, uint8_t oltid, const uint8_t* old, uint32_t old_len,
                               uint8_t op, line_id_inf_info* info);
