// The host's capture reader, and what it reads out of the frames.
#include "host/capture.h"
#include "fuzz/memory_file.h"
#include "host/classify.h"
#include "host/failure.h"

#include <algorithm>
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

// The octets that an escaped text stands for.
octets unescaped(const std::string& text) {
  octets out;
  for (size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\') {
      out.push_back(static_cast<uint8_t>(text[at]));
    } else if (text[++at] == '\\') {
      out.push_back('\\');
    } else {
      out.push_back(static_cast<uint8_t>(std::stoul(text.substr(at + 1, 2), nullptr, 16)));
      at += 2;
    }
  }
  return out;
}

// An identifier stands in the message behind its length: of DHCPv6 two octets, perhaps with an enterprise number
// between. What holds it may be cut short.
void check_id(const std::optional<std::string>& id, uint8_t protocol, octet_view message) {
  if (!id) return;
  const octets wanted = unescaped(*id);
  const auto len = static_cast<int>(wanted.size());
  for (size_t at = 2; at + wanted.size() <= message.size(); ++at) {
    if (!std::equal(wanted.begin(), wanted.end(), message.begin() + static_cast<std::ptrdiff_t>(at))) continue;
    if (protocol != LINE_ID_DHCPV6 && message[at - 1] >= len) return;
    if (protocol == LINE_ID_DHCPV6 && (u16_at(message, at - 2) >= len || (at >= 6 && u16_at(message, at - 6) >= len))) {
      return;
    }
  }
  check(false, "an identifier that the frame does not hold");
}

// The frames of a pcap file in this machine's order, read in the plainest way; others are libpcap's.
class plain_reader {
public:
  explicit plain_reader(octet_view file) : file_(file) {
    const bool known = word(0) == 0xA1B2C3D4 || word(0) == 0xA1B23C4D;
    if (known && word(4) == 0x00040002) at_ = HEADER;
  }
  void check_next(octet_view frame) {
    if (at_ == 0) return;
    const uint32_t len = word(at_ + 8);
    check(len == word(at_ + 12), "a frame that was cut");
    const octet_view wanted = slice(file_, at_ + RECORD, len);
    check(std::equal(frame.begin(), frame.end(), wanted.begin(), wanted.end()), "not the frame of the file");
    at_ += RECORD + len;
  }

private:
  static constexpr size_t HEADER = 24;
  static constexpr size_t RECORD = 16;
  uint32_t word(size_t at) const {
    uint32_t value = 0;
    if (at + sizeof(value) <= file_.size()) std::memcpy(&value, file_.data() + at, sizeof(value));
    return value;
  }
  octet_view file_;
  size_t at_ = 0; // 0: not such a file
};

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
  octet_view message = slice(frame, found.message);
  if (found.protocol == LINE_ID_PPPOE) message = slice(message, 0, size_t{6} + u16_at(message, 4));
  check_id(ids.circuit_id, found.protocol, message);
  check_id(ids.remote_id, found.protocol, message);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = memory_file(data, size);
  try {
    capture_reader capture(path);
    plain_reader plain({data, size});
    direction_finder finder;
    captured_frame frame = {};
    uint32_t number = 0;
    while (capture.next(frame)) {
      check(frame.number == ++number, "frames are not counted in order");
      check(capture.position() >= 0 && capture.position() <= 1, "a position outside of the file");
      plain.check_next(frame.data);
      read_frame(frame.data, finder);
    }
  } catch (const host_failure& failure) {
    check(failure.code() == EXIT_CAPTURE && std::strlen(failure.what()) > 0, "a failure without words");
  }
  return 0;
}
