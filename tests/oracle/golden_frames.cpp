// Writes frames that the agent rebuilt to a capture, and what an independent analyser must find in each to a table:
// golden_frames CAPTURE.pcap EXPECTED.tsv
//
// A row of the table: protocol, VLAN tags, Circuit-ID, Remote-ID, name.
#include "tests/oracle/golden_rows.h"

#include <cstdio>
#include <cstring>

namespace {

FILE* g_capture;
FILE* g_table;
uint32_t g_frames;

void put32(uint32_t value) { std::fwrite(&value, 4, 1, g_capture); }

void begin_capture() {
  put32(0xA1B2C3D4); // pcap, microseconds, host order
  put32(2 | 4U << 16);
  put32(0);
  put32(0);
  put32(65535);
  put32(1); // Ethernet
}

void write_frame(const octets& frame) {
  put32(g_frames++);
  put32(0);
  put32(static_cast<uint32_t>(frame.size()));
  put32(static_cast<uint32_t>(frame.size()));
  std::fwrite(frame.data(), 1, frame.size(), g_capture);
}

bool run_row(const golden& row, uint32_t tags) {
  agent_config config = agent_defaults();
  row.configure(config);
  if (agent_start(config) != 0) return false;
  const octets in = row.frame(tagged(tags));
  const outcome out = agent_feed(in, row.direct);
  if (out.sent.size() != 1 ||
      (out.sent[0].frame == in && std::strcmp(row.name, "keep") != 0 && std::strcmp(row.name, "PADR, keep") != 0)) {
    std::fprintf(stderr, "%s, %u tags: not rebuilt\n", row.name, tags);
    return false;
  }
  write_frame(out.sent[0].frame);
  std::fprintf(g_table, "%s\t%u\t%s\t%s\t%s\n", row.protocol, tags, row.circuit, row.remote, row.name);
  return true;
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 3 || (g_capture = std::fopen(argv[1], "wb")) == nullptr ||
      (g_table = std::fopen(argv[2], "w")) == nullptr) {
    std::fputs("usage: golden_frames CAPTURE.pcap EXPECTED.tsv\n", stderr);
    return 2;
  }
  begin_capture();
  bool good = true;
  for (const golden& row : golden_rows()) {
    const uint32_t most_tags = std::strstr(row.name, "802.1ad") != nullptr ? 2 : 4; // it has two of its own
    for (uint32_t tags = 0; tags <= most_tags; ++tags) good = run_row(row, tags) && good;
  }
  std::fclose(g_capture);
  std::fclose(g_table);
  return good ? 0 : 1;
}
