// MAC-ONU binding tables: learning, look-up and report, once for both tables.
#include "antispoof/binding_table.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "config/store.h"
#include "core/log.h"
#include "lineid/params.h"
#include "packet/frame.h"

constexpr uint32_t BINDING_MAX_ENTRIES = 16384;
constexpr int32_t BINDING_FIRST_TIMEOUT = 600; // ticks, until the table's init
constexpr int32_t BINDING_TIMEOUT = 10;
constexpr uint32_t BINDING_SEM_KIND = 2;

rb_root g_dhcp_binding_table;
uint32_t g_dhcp_binding_entries;
uint32_t g_max_dhcp_binding_counts = BINDING_MAX_ENTRIES;
int32_t g_dhcp_binding_table_access_timeout = BINDING_FIRST_TIMEOUT;
pal_sem g_sem_dhcp_binding_table;

rb_root g_pppoe_binding_table;
uint32_t g_pppoe_binding_entries;
uint32_t g_max_pppoe_bindind_counts = BINDING_MAX_ENTRIES;
int32_t g_pppoe_binding_table_access_timeout = BINDING_FIRST_TIMEOUT;
pal_sem g_sem_pppoe_binding_table;

int32_t line_id_macaddr_compare(const uint8_t* a, const uint8_t* b) { return std::memcmp(a, b, 6); }

namespace {

// Entries are allocated by the block, which costs less memory and time than one at a time.
constexpr uint32_t BINDING_BLOCK = 84;
line_id_binding_entry* g_dhcp_binding_spare; // linked through their right sides; with the table's semaphore held
line_id_binding_entry* g_pppoe_binding_spare;

constexpr uint8_t BINDING_OP_SHOW = 1;
constexpr uint8_t BINDING_OP_DEL_MAC = 2;
constexpr uint8_t BINDING_OP_DEL_ONU = 3;

using switch_getter = decltype(line_id_get_dhcp_anti_spoofing_enable_cfg);
using count_getter = decltype(line_id_get_dhcp_valid_binding_count_cfg);

// All that tells the two tables apart.
struct binding_table {
  rb_root* root;
  line_id_binding_entry** spare;
  uint32_t* entries;
  const uint32_t* max_entries;
  int32_t* timeout;
  pal_sem* sem;
  count_getter* valid_count;
  switch_getter* enabled;
  switch_getter* active; // null: the report has no active mark
  const char* name;
  int rule_width;
  const char* heading;
  int onu_gap; // blanks between the columns ONU-ID and attempts
};

constexpr binding_table DHCP = {
    .root = &g_dhcp_binding_table,
    .spare = &g_dhcp_binding_spare,
    .entries = &g_dhcp_binding_entries,
    .max_entries = &g_max_dhcp_binding_counts,
    .timeout = &g_dhcp_binding_table_access_timeout,
    .sem = &g_sem_dhcp_binding_table,
    .valid_count = line_id_get_dhcp_valid_binding_count_cfg,
    .enabled = line_id_get_dhcp_anti_spoofing_enable_cfg,
    .active = line_id_get_dhcp_anti_spoofing_active_cfg,
    .name = "DHCP",
    .rule_width = 57,
    .heading = "MAC Address         Slot   PON   ONU-ID      Attempts\r\n",
    .onu_gap = 6,
};
constexpr binding_table PPPOE = {
    .root = &g_pppoe_binding_table,
    .spare = &g_pppoe_binding_spare,
    .entries = &g_pppoe_binding_entries,
    .max_entries = &g_max_pppoe_bindind_counts,
    .timeout = &g_pppoe_binding_table_access_timeout,
    .sem = &g_sem_pppoe_binding_table,
    .valid_count = line_id_get_pppoe_valid_binding_count_cfg,
    .enabled = line_id_get_pppoe_anti_spoofing_enable_cfg,
    .active = nullptr,
    .name = "PPPoE",
    .rule_width = 55,
    .heading = "MAC Address         Slot   PON   ONU-ID   Attempts\r\n",
    .onu_gap = 3,
};

// A call of one of the named functions: its table, and its name for messages.
struct binding_call {
  const binding_table& table;
  const char* function;
};

int32_t fail(const binding_call& call, const char* text, int32_t code) {
  line_id_log_error(call.function, __LINE__, "%s failed(%d).\r\n", text, code);
  return code;
}

// The table's semaphore, held for the life of the record.
struct binding_lock {
  pal_sem* sem;
  bool held;

  binding_lock(const binding_table& table, int32_t ticks) : sem(table.sem), held(pal_sem_take(sem, ticks) == 0) {}
  ~binding_lock() {
    if (held) pal_sem_give(sem);
  }
  binding_lock(const binding_lock&) = delete;
  binding_lock& operator=(const binding_lock&) = delete;
};

int32_t fail_lock(const binding_call& call) { return fail(call, "pal_sem_take", LINE_ID_ERR_BINDING_SEM); }

// ---- tree level

uint64_t mac_key(const uint8_t* mac) {
  return static_cast<uint64_t>(line_id_get_u16(mac)) << 32 | line_id_get_u32(mac + 2);
}

line_id_binding_entry* entry_of(rb_node* node) { return reinterpret_cast<line_id_binding_entry*>(node); }

// The entry of a key; without one, null and the node under which it belongs (null for an empty tree).
line_id_binding_entry* find(const rb_root* root, uint64_t key, rb_node*& parent) {
  parent = nullptr;
  for (rb_node* node = root->node; node != nullptr;) {
    line_id_binding_entry* entry = entry_of(node);
    if (key == entry->mac) return entry;
    parent = node;
    node = key < entry->mac ? node->left : node->right;
  }
  return nullptr;
}

void link_entry(const binding_table& table, rb_root* root, line_id_binding_entry* entry, rb_node* parent) {
  rb_node** link = &root->node;
  if (parent != nullptr) link = entry->mac < entry_of(parent)->mac ? &parent->left : &parent->right;
  rb_link_node(&entry->node, parent, link);
  rb_insert_color(&entry->node, root);
  ++*table.entries;
}

void give_back_entry(const binding_table& table, line_id_binding_entry* entry) {
  entry->node.right = *table.spare != nullptr ? &(*table.spare)->node : nullptr;
  *table.spare = entry;
}

// An entry whose fields are anything, or null without memory.
line_id_binding_entry* take_entry(const binding_table& table) {
  if (*table.spare == nullptr) {
    auto* block = new (std::nothrow) line_id_binding_entry[BINDING_BLOCK];
    for (uint32_t i = 0; block != nullptr && i < BINDING_BLOCK; ++i) give_back_entry(table, &block[i]);
  }
  line_id_binding_entry* entry = *table.spare;
  if (entry != nullptr) *table.spare = entry_of(entry->node.right);
  return entry;
}

line_id_binding_entry* new_entry(const binding_call& call, rb_root* root, uint64_t key,
                                 const line_id_binding_place& place, rb_node* parent) {
  line_id_binding_entry* entry = take_entry(call.table);
  if (entry == nullptr) {
    fail(call, "malloc", LINE_ID_ERR_MALLOC);
    return nullptr;
  }
  *entry = {{}, key, place, 1};
  link_entry(call.table, root, entry, parent);
  return entry;
}

void drop_entry(const binding_table& table, rb_root* root, line_id_binding_entry* entry) {
  rb_erase(&entry->node, root);
  give_back_entry(table, entry);
  --*table.entries;
}

line_id_binding_entry* binding_search(const binding_call& call, rb_root* root, const uint8_t* mac) {
  if (root == nullptr || mac == nullptr) {
    fail(call, "root OR mac_addr is NULL,", LINE_ID_ERR_NULL);
    return nullptr;
  }
  rb_node* parent;
  return find(root, mac_key(mac), parent);
}

int32_t binding_insert(const binding_call& call, rb_root* root, line_id_binding_entry* entry) {
  if (root == nullptr || entry == nullptr) return fail(call, "root OR data is NULL,", LINE_ID_ERR_NULL);
  rb_node* parent;
  if (find(root, entry->mac, parent) != nullptr) return LINE_ID_ERR;
  link_entry(call.table, root, entry, parent);
  return LINE_ID_OK;
}

int32_t binding_del(const binding_call& call, rb_root* root, const uint8_t* mac) {
  if (root == nullptr || mac == nullptr) return fail(call, "root OR mac_addr is NULL,", LINE_ID_ERR_NULL);
  rb_node* parent;
  line_id_binding_entry* entry = find(root, mac_key(mac), parent);
  if (entry == nullptr) return LINE_ID_ERR;
  drop_entry(call.table, root, entry);
  return LINE_ID_OK;
}

line_id_binding_entry* binding_add(const binding_call& call, rb_root* root, const uint8_t* mac,
                                   const line_id_binding_place& place) {
  if (root == nullptr || mac == nullptr) {
    fail(call, "root OR mac_addr is NULL,", LINE_ID_ERR_NULL);
    return nullptr;
  }
  rb_node* parent;
  line_id_binding_entry* entry = find(root, mac_key(mac), parent);
  if (entry == nullptr) return new_entry(call, root, mac_key(mac), place, parent);
  entry->place = place;
  return entry;
}

int32_t binding_free(const binding_call& call, rb_root* root) {
  if (root == nullptr) return fail(call, "root is NULL,", LINE_ID_ERR_NULL);
  while (rb_node* node = rb_first(root)) drop_entry(call.table, root, entry_of(node));
  *call.table.entries = 0;
  return LINE_ID_OK;
}

// ---- locked level

// A MAC that is bound elsewhere: moved here, unless it was seen there often enough.
int32_t learn_elsewhere(line_id_binding_entry& entry, const line_id_binding_place& place, uint32_t valid_count,
                        line_id_binding_place* bound) {
  if (bound != nullptr) *bound = entry.place;
  if (entry.attempts >= valid_count) return BINDING_SPOOFED;
  entry.place = place;
  entry.attempts = 1;
  return BINDING_KNOWN;
}

int32_t learn(const binding_call& call, uint8_t oltid, const uint8_t* mac, const line_id_binding_place& place,
              line_id_binding_place* bound) {
  if (mac == nullptr) {
    fail(call, "mac_addr is NULL,", LINE_ID_ERR_NULL);
    return BINDING_FAILED;
  }
  const binding_table& table = call.table;
  const binding_lock lock(table, *table.timeout);
  if (!lock.held) {
    line_id_log_error(call.function, __LINE__, "%s (%d).\r\n", call.function, LINE_ID_ERR_BINDING_SEM);
    return BINDING_FAILED;
  }
  rb_node* parent;
  line_id_binding_entry* entry = find(table.root, mac_key(mac), parent);
  if (entry == nullptr) {
    // ODD: greater-than, so that a table grows to one entry more than its maximum.
    if (*table.entries > *table.max_entries) return BINDING_FAILED;
    return new_entry(call, table.root, mac_key(mac), place, parent) != nullptr ? BINDING_NEW : BINDING_FAILED;
  }
  const uint32_t valid_count = table.valid_count(oltid);
  if (entry->place != place) return learn_elsewhere(*entry, place, valid_count, bound);
  if (entry->attempts < valid_count) ++entry->attempts;
  return BINDING_KNOWN;
}

int32_t del_mac(const binding_call& call, const uint8_t* mac) {
  if (mac == nullptr) return fail(call, "mac_addr is NULL,", LINE_ID_ERR_NULL);
  const binding_lock lock(call.table, *call.table.timeout);
  return lock.held ? binding_del(call, call.table.root, mac) : fail_lock(call);
}

int32_t look_up(const binding_call& call, const uint8_t* mac, line_id_binding_place* place) {
  if (mac == nullptr || place == nullptr) return fail(call, "mac_addr OR result is NULL,", LINE_ID_ERR_NULL);
  const binding_lock lock(call.table, *call.table.timeout);
  if (!lock.held) return fail_lock(call);
  const line_id_binding_entry* entry = binding_search(call, call.table.root, mac);
  if (entry == nullptr) return LINE_ID_ERR;
  *place = entry->place;
  return LINE_ID_OK;
}

int32_t clear(const binding_call& call) {
  const binding_lock lock(call.table, *call.table.timeout);
  return lock.held ? binding_free(call, call.table.root) : fail_lock(call);
}

int32_t del_onu(const binding_call& call, uint16_t pon, uint16_t onu) {
  const binding_lock lock(call.table, 2 * *call.table.timeout);
  if (!lock.held) return fail_lock(call);
  for (rb_node* node = rb_first(call.table.root); node != nullptr;) {
    line_id_binding_entry* entry = entry_of(node);
    node = rb_next(node);
    if (entry->place.pon == pon && entry->place.onu == onu) drop_entry(call.table, call.table.root, entry);
  }
  return LINE_ID_OK;
}

void print_rule(char character, int width) {
  for (int i = 0; i < width; ++i) std::putchar(character);
  std::fputs("\r\n", stdout);
}

int32_t show(const binding_call& call, uint8_t oltid) {
  const binding_table& table = call.table;
  std::printf("\r\n%s MAC-ONU Binding Table - Status : %s", table.name,
              table.enabled(oltid) != 0 ? "Enabled" : "Disabled");
  if (table.active != nullptr) std::printf(" %s", table.active(oltid) != 0 ? "*" : " ");
  std::fputs("\r\n", stdout);
  print_rule('=', table.rule_width);
  std::fputs(table.heading, stdout);
  print_rule('-', table.rule_width);

  const binding_lock lock(table, *table.timeout);
  if (!lock.held) return fail_lock(call);
  for (const rb_node* node = rb_first(table.root); node != nullptr; node = rb_next(node)) {
    const auto* entry = reinterpret_cast<const line_id_binding_entry*>(node);
    uint8_t mac[6];
    line_id_set_u16(mac, static_cast<uint16_t>(entry->mac >> 32));
    line_id_set_u32(mac + 2, static_cast<uint32_t>(entry->mac));
    line_id_printf_mac(mac);
    std::printf("        %02d      %02d      %02d%*s%d\r\n", entry->place.slot, entry->place.pon, entry->place.onu,
                table.onu_gap, "", static_cast<int32_t>(entry->attempts));
  }
  std::printf("Total %d Entries\r\n", static_cast<int32_t>(*table.entries));
  return LINE_ID_OK;
}

int32_t table_init(const binding_call& call) {
  *call.table.timeout = BINDING_TIMEOUT;
  if (pal_sem_create(call.table.sem, BINDING_SEM_KIND) == 0) return LINE_ID_OK;
  return fail(call, "pal_sem_create", LINE_ID_ERR_SEM_CREATE);
}

} // namespace

// The named functions of a table.
#define BINDING_FUNCTIONS(kind, table)                                                                                 \
  line_id_binding_entry* line_id_##kind##_binding_search(rb_root* root, const uint8_t* mac) {                          \
    return binding_search({table, __func__}, root, mac);                                                               \
  }                                                                                                                    \
  int32_t line_id_##kind##_binding_insert(rb_root* root, line_id_binding_entry* entry) {                               \
    return binding_insert({table, __func__}, root, entry);                                                             \
  }                                                                                                                    \
  int32_t line_id_##kind##_binding_del(rb_root* root, const uint8_t* mac) {                                            \
    return binding_del({table, __func__}, root, mac);                                                                  \
  }                                                                                                                    \
  line_id_binding_entry* line_id_##kind##_binding_add(rb_root* root, const uint8_t* mac, uint16_t slot, uint16_t pon,  \
                                                      uint16_t onu) {                                                  \
    return binding_add({table, __func__}, root, mac, {slot, pon, onu});                                                \
  }                                                                                                                    \
  int32_t line_id_##kind##_binding_free(rb_root* root) { return binding_free({table, __func__}, root); }               \
  int32_t line_id_add_##kind##_binding_entry(uint8_t oltid, const uint8_t* mac, uint16_t slot, uint16_t pon,           \
                                             uint16_t onu, line_id_binding_place* place) {                             \
    return learn({table, __func__}, oltid, mac, {slot, pon, onu}, place);                                              \
  }                                                                                                                    \
  int32_t line_id_del_##kind##_binding_entry(const uint8_t* mac) { return del_mac({table, __func__}, mac); }           \
  int32_t line_id_search_##kind##_binding_table(const uint8_t* mac, line_id_binding_place* place) {                    \
    return look_up({table, __func__}, mac, place);                                                                     \
  }                                                                                                                    \
  int32_t line_id_clear_##kind##_binding_table() { return clear({table, __func__}); }                                  \
  int32_t line_id_del_##kind##_bindings(uint16_t pon, uint16_t onu) { return del_onu({table, __func__}, pon, onu); }   \
  int32_t line_id_show_##kind##_binding_table(uint8_t oltid) { return show({table, __func__}, oltid); }                \
  int32_t line_id_##kind##_binding_table_init() { return table_init({table, __func__}); }                              \
  int32_t line_id_op_##kind##_anti_spoofing_entry(uint8_t oltid, uint8_t op, uint16_t pon, uint16_t onu,               \
                                                  const uint8_t* mac) {                                                \
    switch (op) {                                                                                                      \
    case BINDING_OP_SHOW: return line_id_show_##kind##_binding_table(oltid);                                           \
    case BINDING_OP_DEL_MAC: return line_id_del_##kind##_binding_entry(mac);                                           \
    case BINDING_OP_DEL_ONU: return line_id_del_##kind##_bindings(pon, onu);                                           \
    default: return LINE_ID_OK;                                                                                        \
    }                                                                                                                  \
  }

BINDING_FUNCTIONS(dhcp, DHCP)
BINDING_FUNCTIONS(pppoe, PPPOE)
