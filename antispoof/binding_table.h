// MAC-ONU binding tables, one for DHCP and one for PPPoE: where each subscriber's MAC address was learnt, and the
// check that a frame's MAC is being spoofed behind another ONU.
//
// The two tables are twins over one implementation. The worker learns, checks, shows and deletes; each call of the
// locked level holds the table's semaphore for its whole run. Settings are those of instance 0: the registered call
// carries no instance.
#pragma once

#include <cstdint>

#include "antispoof/rbtree.h"
#include "core/records.h"
#include "platform/pal.h"

// Where a MAC address was learnt.
struct line_id_binding_place {
  uint16_t slot; // OLT slot
  uint16_t pon;
  uint16_t onu;

  bool operator==(const line_id_binding_place&) const = default;
};

// One MAC address. The memory of a deleted one is kept for the next that is learnt.
struct line_id_binding_entry {
  rb_node node; // first, so that a node's address is its entry's
  uint64_t mac; // the key: the six octets as one number, which keeps the order of line_id_macaddr_compare
  line_id_binding_place place;
  uint32_t attempts; // times seen at this place, the first included; capped at the valid binding count
};
static_assert(sizeof(line_id_binding_entry) <= 48);

// The tables. Written by the worker with the table's semaphore held.
extern rb_root g_dhcp_binding_table;
extern uint32_t g_dhcp_binding_entries;
extern uint32_t g_max_dhcp_binding_counts;          // learning stops when a table holds more entries
extern int32_t g_dhcp_binding_table_access_timeout; // ticks; 600 before the table's init
extern pal_sem g_sem_dhcp_binding_table;

extern rb_root g_pppoe_binding_table;
extern uint32_t g_pppoe_binding_entries;
extern uint32_t g_max_pppoe_bindind_counts;
extern int32_t g_pppoe_binding_table_access_timeout;
extern pal_sem g_sem_pppoe_binding_table;

// The order of MAC addresses: negative, 0 or positive.
int32_t line_id_macaddr_compare(const uint8_t* a, const uint8_t* b);

// ---- tree level: the caller holds the semaphore. A missing argument is -9, or null.

// The entry of a MAC, or null.
line_id_binding_entry* line_id_dhcp_binding_search(rb_root* root, const uint8_t* mac);
line_id_binding_entry* line_id_pppoe_binding_search(rb_root* root, const uint8_t* mac);
// Takes the entry, made with new, over for good: 0, or -1 when the MAC is present (the entry stays the caller's).
int32_t line_id_dhcp_binding_insert(rb_root* root, line_id_binding_entry* entry);
int32_t line_id_pppoe_binding_insert(rb_root* root, line_id_binding_entry* entry);
// Erase and free: 0, or -1 for an unknown MAC.
int32_t line_id_dhcp_binding_del(rb_root* root, const uint8_t* mac);
int32_t line_id_pppoe_binding_del(rb_root* root, const uint8_t* mac);
// Move the MAC's entry, attempts kept, or make one with attempts 1. The entry, or null without memory.
line_id_binding_entry* line_id_dhcp_binding_add(rb_root* root, const uint8_t* mac, uint16_t slot, uint16_t pon,
                                                uint16_t onu);
line_id_binding_entry* line_id_pppoe_binding_add(rb_root* root, const uint8_t* mac, uint16_t slot, uint16_t pon,
                                                 uint16_t onu);
// Erase and free every entry: 0.
int32_t line_id_dhcp_binding_free(rb_root* root);
int32_t line_id_pppoe_binding_free(rb_root* root);

// ---- locked level: -94 when the semaphore could not be taken in time

// What learning found.
enum line_id_binding_result : int32_t {
  BINDING_NEW = 0,
  BINDING_SPOOFED = -1, // firmly bound elsewhere
  BINDING_KNOWN = -2,   // seen again at its place, or moved here
  BINDING_FAILED = LINE_ID_ERR_BINDING,
};
// Learn where a MAC is, with the valid binding count of `oltid`; a line_id_binding_result. For a MAC that was bound
// elsewhere, `place` (or null) gets that place. A semaphore that could not be taken is BINDING_FAILED.
int32_t line_id_add_dhcp_binding_entry(uint8_t oltid, const uint8_t* mac, uint16_t slot, uint16_t pon, uint16_t onu,
                                       line_id_binding_place* place);
int32_t line_id_add_pppoe_binding_entry(uint8_t oltid, const uint8_t* mac, uint16_t slot, uint16_t pon, uint16_t onu,
                                        line_id_binding_place* place);
// 0, -1 unknown MAC, -9, -94.
int32_t line_id_del_dhcp_binding_entry(const uint8_t* mac);
int32_t line_id_del_pppoe_binding_entry(const uint8_t* mac);
// Look up: 0 and the place, -1 unknown MAC, -9, -94.
int32_t line_id_search_dhcp_binding_table(const uint8_t* mac, line_id_binding_place* place);
int32_t line_id_search_pppoe_binding_table(const uint8_t* mac, line_id_binding_place* place);
// 0 or -94.
int32_t line_id_clear_dhcp_binding_table();
int32_t line_id_clear_pppoe_binding_table();
// Delete what was learnt behind one ONU; waits up to twice the access time-out. 0 or -94.
int32_t line_id_del_dhcp_bindings(uint16_t pon, uint16_t onu);
int32_t line_id_del_pppoe_bindings(uint16_t pon, uint16_t onu);
// The report on standard output, with the status of `oltid`. 0 or -94 (the heading is then printed already).
int32_t line_id_show_dhcp_binding_table(uint8_t oltid);
int32_t line_id_show_pppoe_binding_table(uint8_t oltid);

// ---- the operations of the registration table

// Create the semaphore; again: keeps it and all that was learnt. 0 or -92.
int32_t line_id_dhcp_binding_table_init();
int32_t line_id_pppoe_binding_table_init();
// Operator's requests: 1 show, 2 delete the MAC, 3 delete by PON and ONU; the operation's result, 0 for any other.
int32_t line_id_op_dhcp_anti_spoofing_entry(uint8_t oltid, uint8_t op, uint16_t pon, uint16_t onu, const uint8_t* mac);
int32_t line_id_op_pppoe_anti_spoofing_entry(uint8_t oltid, uint8_t op, uint16_t pon, uint16_t onu, const uint8_t* mac);
// The check of a frame: 0 lets it on, -1 asks the agent to drop it. The first two arguments are not used.
int32_t line_id_process_dhcp_anti_mac_spoofing(int32_t, int32_t, line_id_inf_info* info);
int32_t line_id_process_pppoe_anti_mac_spoofing(int32_t, int32_t, line_id_inf_info* info);
