// The host's capture reader, and what it reads out of the frames.
#include "host/capture.h"
#include "fuzz/memory_file.h"
#include "host/classify.h"
#include "host/failure.h"

#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "FINDING: %s\n", what);
  std::abort();
}

void read_frame(const octets& data, direction_finder& finder) {
  const std::unique_ptr<uint8_t[]> exact(new uint8_t[data.size()]);
  if (!data.empty()) std::memcpy(exact.get(), data.data(), data.size());
  const octet_view frame(exact.get(), data.size());
  const frame_class found = classify_frame(frame);
  check(found.protocol <= LINE_ID_PPPOE && found.tags <= 4 && found.outer <= NO_VLAN && found.inner <= NO_VLAN,
        "a class out of range");
  check(found.protocol == PROTOCOL_NONE || found.message <= frame.size(), "a message behind its frame");
  const uint8_t direct = finder.find(frame, found);
  check(direct == LINE_ID_UPSTREAM || direct == LINE_ID_DOWNSTREAM, "no direction");
  subscriber_mac(frame, found, direct);
  const frame_ids ids = decode_ids(frame);
  // Four characters for each octet at most.
  check(!ids.circuit_id || ids.circuit_id->size() <= 4 * frame.size(), "a Circuit-ID longer than its frame");
  check(!ids.remote_id || ids.remote_id->size() <= 4 * frame.size(), "a Remote-ID longer than its frame");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = memory_file(data, size);
  try {
    capture_reader capture(path);
    direction_finder finder;
    captured_frame frame = {};
    uint32_t number = 0;
    while (capture.next(frame)) {
      check(frame.number == ++number, "frames are not counted in order");
      check(capture.position() >= 0 && capture.position() <= 1, "a position outside of the file");
      read_frame(frame.data, finder);
    }
  } catch (const host_failure& failure) {
    check(failure.code() == EXIT_CAPTURE && std::strlen(failure.what()) > 0, "a failure without words");
  }
  return 0;
}
