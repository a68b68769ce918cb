// The same rewriting written by hand, as a yardstick.
#include "bench/bare.h"

#include <cstring>

namespace {

constexpr uint32_t OUT_LEN = 1536;
constexpr uint32_t LONGEST = 1500;

uint16_t get16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
void put16(uint8_t* p, uint32_t value) {
  p[0] = static_cast<uint8_t>(value >> 8);
  p[1] = static_cast<uint8_t>(value);
}

bool is_tag(const uint8_t* frame, uint32_t len, uint32_t at) {
  return at + 2 <= len && (get16(frame + at) == 0x8100 || get16(frame + at) == 0x88A8);
}

// Offset of the EtherType behind up to four tags.
uint32_t skip_tags(const uint8_t* frame, uint32_t len) {
  uint32_t at = 12;
  while (at < 28 && is_tag(frame, len, at)) at += 4;
  return at;
}

uint8_t* put_sub_option(uint8_t* p, uint8_t type, std::string_view text) {
  p[0] = type;
  p[1] = static_cast<uint8_t>(text.size());
  std::memcpy(p + 2, text.data(), text.size());
  return p + 2 + text.size();
}

uint32_t add_words(uint32_t sum, const uint8_t* p, uint32_t len) {
  for (; len > 1; len -= 2, p += 2) sum += get16(p);
  return len != 0 ? sum + (static_cast<uint32_t>(*p) << 8) : sum;
}

uint16_t fold(uint32_t sum) {
  while (sum > 0xFFFF) sum = (sum >> 16) + (sum & 0xFFFF);
  return static_cast<uint16_t>(~sum);
}

} // namespace

uint32_t bare_find_end(const uint8_t* frame, uint32_t len, uint32_t at) {
  while (at < len && frame[at] != 255) {
    if (frame[at] == 0 || frame[at] == 82 || len - at < 2) return 0;
    if (frame[at] == 53 && (frame[at + 1] != 1 || len - at < 3 || frame[at + 2] == 2 || frame[at + 2] == 5)) return 0;
    at += 2U + frame[at + 1];
  }
  return at < len ? at : 0;
}

uint32_t bare_dhcp4(const uint8_t* frame, uint32_t len, uint8_t* out, const bare_texts& texts) {
  const uint32_t type_at = skip_tags(frame, len);
  const uint32_t ip = type_at + 2;
  const uint32_t udp = ip + 20;
  const uint32_t options = udp + 8 + 240;
  if (len <= options || get16(frame + type_at) != 0x0800 || frame[ip] != 0x45) return 0;
  if (get16(frame + ip + 2) != len - ip || get16(frame + udp + 4) != len - udp) return 0;
  if (get16(frame + udp) != 68 || get16(frame + udp + 2) != 67 || frame[udp + 8] != 1) return 0;
  const uint32_t end = bare_find_end(frame, len, options);
  const uint32_t value_len = static_cast<uint32_t>(4 + texts.circuit_id.size() + texts.remote_id.size());
  if (end == 0 || value_len > 255 || len + 2 + value_len > LONGEST) return 0;

  std::memcpy(out, frame, end);
  uint8_t* p = out + end;
  *p++ = 82;
  *p++ = static_cast<uint8_t>(value_len);
  p = put_sub_option(p, 1, texts.circuit_id);
  p = put_sub_option(p, 2, texts.remote_id);
  std::memcpy(p, frame + end, len - end);
  len += 2 + value_len;
  put16(out + ip + 2, len - ip);
  put16(out + ip + 10, 0);
  put16(out + ip + 10, fold(add_words(0, out + ip, 20)));
  put16(out + udp + 4, len - udp);
  put16(out + udp + 6, 0);
  return len;
}

uint32_t bare_pppoe(const uint8_t* frame, uint32_t len, uint8_t* out, const bare_texts& texts) {
  const uint32_t type_at = skip_tags(frame, len);
  const uint32_t header = type_at + 2;
  const uint32_t tags = header + 6;
  if (len < tags || get16(frame + type_at) != 0x8863 || frame[header] != 0x11) return 0;
  if (frame[header + 1] != 0x09 && frame[header + 1] != 0x19) return 0;
  const uint32_t payload_len = get16(frame + header + 4);
  if (payload_len > len - tags) return 0;
  const uint32_t end = tags + payload_len;
  for (uint32_t at = tags; end - at >= 4;) {
    const uint32_t whole = 4U + get16(frame + at + 2);
    if (get16(frame + at) == 0x0105 || whole > end - at) return 0;
    at += whole;
  }
  const uint32_t value_len = static_cast<uint32_t>(8 + texts.circuit_id.size() + texts.remote_id.size());
  if (len + 4 + value_len > LONGEST) return 0;

  std::memcpy(out, frame, end);
  uint8_t* p = out + end;
  put16(p, 0x0105);
  put16(p + 2, value_len);
  put16(p + 4, 3561 >> 16);
  put16(p + 6, 3561 & 0xFFFF);
  p = put_sub_option(p + 8, 1, texts.circuit_id);
  p = put_sub_option(p, 2, texts.remote_id);
  std::memcpy(p, frame + end, len - end);
  put16(out + header + 4, payload_len + 4 + value_len);
  return len + 4 + value_len;
}

uint32_t bare_dhcp6(const uint8_t* frame, uint32_t len, uint8_t* out, const bare_texts& texts) {
  const uint32_t type_at = skip_tags(frame, len);
  const uint32_t ip = type_at + 2;
  const uint32_t udp = ip + 40;
  const uint32_t message = udp + 8;
  if (len < message + 4 || get16(frame + type_at) != 0x86DD || frame[ip + 6] != 17) return 0;
  const uint8_t kind = frame[message];
  if (kind == 2 || kind == 7 || kind == 10 || kind == 12 || kind == 13) return 0;
  const uint32_t message_len = len - message;
  const auto circuit_len = static_cast<uint32_t>(texts.circuit_id.size());
  const auto remote_len = static_cast<uint32_t>(texts.remote_id.size());
  if (len + 34 + 4 + 4 + circuit_len + 8 + remote_len > OUT_LEN) return 0;

  std::memcpy(out, frame, udp);
  uint8_t* p = out + udp;
  put16(p, 547);
  put16(p + 2, 547);
  put16(p + 6, 0);
  p += 8;
  *p++ = 12;
  *p++ = 0;
  std::memset(p, 0, 16);
  std::memcpy(p + 16, frame + ip + 8, 16);
  put16(p + 32, 9);
  put16(p + 34, message_len);
  std::memcpy(p + 36, frame + message, message_len);
  p += 36 + message_len;
  put16(p, 18);
  put16(p + 2, circuit_len);
  std::memcpy(p + 4, texts.circuit_id.data(), circuit_len);
  p += 4 + circuit_len;
  put16(p, 37);
  put16(p + 2, 4 + remote_len);
  put16(p + 4, 0);
  put16(p + 6, 3807);
  std::memcpy(p + 8, texts.remote_id.data(), remote_len);
  p += 8 + remote_len;
  len = static_cast<uint32_t>(p - out);
  put16(out + ip + 4, len - udp);
  put16(out + udp + 4, len - udp);
  const uint32_t sum = add_words(len - udp + 17, out + ip + 8, 32);
  const uint16_t check_sum = fold(add_words(sum, out + udp, len - udp));
  put16(out + udp + 6, check_sum != 0 ? check_sum : 0xFFFF);
  return len;
}
