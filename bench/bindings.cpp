// The binding table against an intrusive red-black tree with integer keys.
#include "antispoof/binding_table.h"
#include "bench/desk.h"
#include "bench/targets.h"

#include <boost/intrusive/set.hpp>
#include <cstring>
#include <random>

namespace {

using mac = std::array<uint8_t, 6>;

struct peer_entry : boost::intrusive::set_base_hook<boost::intrusive::optimize_size<true>> {
  uint64_t key;
  line_id_binding_place place;
  uint32_t attempts;
};
struct peer_key {
  using type = uint64_t;
  uint64_t operator()(const peer_entry& entry) const { return entry.key; }
};
using peer_tree = boost::intrusive::set<peer_entry, boost::intrusive::key_of_value<peer_key>>;

uint64_t key_of(const mac& of) {
  uint64_t key = 0;
  for (const uint8_t octet : of) key = key << 8 | octet;
  return key;
}

std::vector<mac> random_macs(uint32_t count) {
  std::mt19937_64 random(count);
  std::vector<mac> macs(count);
  for (mac& each : macs) {
    const uint64_t value = random();
    std::memcpy(each.data(), &value, each.size());
  }
  return macs;
}

void peer_insert(peer_tree& tree, const mac& of) {
  auto* entry = new peer_entry;
  entry->key = key_of(of);
  entry->place = {3, 5, 42};
  entry->attempts = 1;
  if (!tree.insert(*entry).second) delete entry;
}

// Every table is asked for the same addresses in the same random order.
struct walker {
  const std::vector<mac>& macs;
  uint64_t state = 1;
  const mac& next() { return macs[bench_random_below(state, static_cast<uint32_t>(macs.size()))]; }
};

double measure_size(report& into, uint32_t count, const std::string& name) {
  const std::vector<mac> macs = random_macs(count);
  peer_tree tree;
  line_id_pppoe_binding_table_init();
  line_id_clear_pppoe_binding_table();
  for (const mac& each : macs) {
    peer_insert(tree, each);
    line_id_add_pppoe_binding_entry(0, each.data(), 3, 5, 42, nullptr);
  }
  walker ours{macs};
  walker peers{macs};
  const group_result found =
      into.add_group(name, {{"intrusive find",
                             [&](uint32_t times) {
                               for (uint32_t i = 0; i < times; ++i) keep(tree.find(key_of(peers.next()))->place);
                             }},
                            {"find",
                             [&](uint32_t times) {
                               for (uint32_t i = 0; i < times; ++i) {
                                 keep(line_id_pppoe_binding_search(&g_pppoe_binding_table, ours.next().data())->place);
                               }
                             }},
                            {"intrusive erase, insert",
                             [&](uint32_t times) {
                               for (uint32_t i = 0; i < times; ++i) {
                                 const mac& each = peers.next();
                                 tree.erase_and_dispose(key_of(each), [](peer_entry* entry) { delete entry; });
                                 peer_insert(tree, each);
                               }
                             }},
                            {"forget, learn", [&](uint32_t times) {
                               for (uint32_t i = 0; i < times; ++i) {
                                 const uint8_t* each = ours.next().data();
                                 line_id_del_pppoe_binding_entry(each);
                                 line_id_add_pppoe_binding_entry(0, each, 3, 5, 42, nullptr);
                               }
                             }}});
  into.add_ratio("bindings / intrusive", name + ": look-up", found, "find", "intrusive find", 1.1);
  into.add_ratio("bindings / intrusive", name + ": learn", found, "forget, learn", "intrusive erase, insert", 1.1);
  line_id_clear_pppoe_binding_table();
  tree.clear_and_dispose([](peer_entry* entry) { delete entry; });
  double time = 0;
  for (const auto& run : found.runs) time += run[1].nanoseconds / static_cast<double>(found.runs.size());
  return time;
}

} // namespace

void measure_bindings(report& into) {
  const double few = measure_size(into, 64, "64 bindings");
  const double many = measure_size(into, 16384, "16384 bindings");
  into.add({"growth of a look-up", "64 to 16384", {many / few}, 5, false, "x"});
  into.add({"octets of a binding", "on this target", {double{sizeof(line_id_binding_entry)}}, 48, false, " "});
}
