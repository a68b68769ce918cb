// Which port a frame goes to.
#include "host/forwarding.h"
#include "tests/support/frames.h"

#include <gtest/gtest.h>

namespace {

mac_octets station(uint8_t last) { return {{0x00, 0x00, 0x5E, 0x00, 0x53, last}}; }
station_key key(uint64_t low) { return {.high = 0, .low = low}; }

TEST(station_table, forgets_by_age_and_only_within_a_full_port) {
  station_table table(2, 3, 300);
  table.learn(key(1), 0, 10);
  table.learn(key(9), 1, 10);
  EXPECT_EQ(table.find(key(1), 310), 0);
  EXPECT_EQ(table.find(key(1), 311), ALL_PORTS);
  EXPECT_EQ(table.find(key(2), 10), ALL_PORTS);

  for (uint64_t i = 2; i <= 3; ++i) table.learn(key(i), 0, 20);
  table.learn(key(1), 0, 30); // heard again: 2 is now the one that is silent longest
  for (uint64_t i = 4; i <= 5; ++i) table.learn(key(i), 0, 40);
  EXPECT_EQ(table.size(), 4U);
  EXPECT_EQ(table.find(key(1), 40), 0);
  EXPECT_EQ(table.find(key(2), 40), ALL_PORTS);
  EXPECT_EQ(table.find(key(3), 40), ALL_PORTS);
  EXPECT_EQ(table.find(key(9), 40), 1);

  table.learn(key(1), 1, 50); // moved
  EXPECT_EQ(table.find(key(1), 50), 1);
  EXPECT_EQ(table.size(), 4U);
}

struct node {
  forwarding known{3};

  void learn(const octets& frame, port_number port) { known.learn(frame, classify_frame(frame), port, 5); }
  port_number find(const octets& frame) { return known.find(frame, classify_frame(frame), 5); }
};

// A frame whose BOOTP header names the client with this last octet.
octets of_client(uint8_t client, octets frame) {
  for (size_t i = 0; i < 6; ++i) frame[14 + 20 + 8 + 28 + i] = station(client).at[i];
  return frame;
}
octets offer(const mac_octets& destination, uint8_t client) {
  return of_client(client, eth(SERVER_MAC, destination).dhcp4(OFFER).end());
}
octets discover(uint8_t source, uint8_t client) {
  return of_client(client, eth(station(source)).dhcp4(DISCOVER).end());
}

TEST(forwarding, finds_the_subscriber_of_a_downstream_frame) {
  node n;
  n.learn(eth(station(1)).vlan(100).pppoe(PADI).done(), 0);
  n.learn(discover(2, 2), 1);
  n.learn(discover(3, 0x33), 2); // asks for another, as a relay does
  // fe80::..5 asks; its reply comes with the address as peer.
  const octets solicit = eth(station(5)).dhcp6(SOLICIT).done();
  n.learn(solicit, 1);
  const octets peer(solicit.begin() + 14 + 8, solicit.begin() + 14 + 24);

  const auto relay_reply = [](const octets& to) { return eth(SERVER_MAC).relay6(RELAY_REPL, 0, to).done(); };
  struct {
    const char* name;
    octets frame;
    port_number port;
  } const rows[] = {
      {"to a station", eth(SERVER_MAC, station(1)).vlan(100).pppoe(PADO).done(), 0},
      {"to a station in another VLAN", eth(SERVER_MAC, station(1)).vlan(101).pppoe(PADO).done(), ALL_PORTS},
      {"to everybody", eth(SERVER_MAC, BROADCAST_MAC).raw({0x08, 0x06, 0, 1}).done(), ALL_PORTS},
      {"broadcast OFFER", offer(BROADCAST_MAC, 2), 1},
      {"broadcast OFFER to a relay's client", offer(BROADCAST_MAC, 0x33), 2},
      {"broadcast OFFER for nobody", offer(BROADCAST_MAC, 0x44), NO_PORT},
      {"OFFER to a relay's client", offer(station(0x33), 0x33), 2},
      {"OFFER to a station that nobody knows", offer(station(0x44), 0x44), ALL_PORTS},
      {"DISCOVER from above", eth(SERVER_MAC).dhcp4(DISCOVER).end(), ALL_PORTS},
      {"Relay-Reply by its peer", relay_reply(peer), 1},
      {"Relay-Reply for nobody", relay_reply(link_local(0x77)), NO_PORT},
      {"SOLICIT from above", eth(SERVER_MAC).dhcp6(SOLICIT).done(), ALL_PORTS},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(n.find(row.frame), row.port);
  }
}

} // namespace
