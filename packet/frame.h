// Bounded reading and writing of frames, and one walker for every tag-length-value form.
//
// A read or write that does not fit does nothing, yields zero and makes `ok` false for good, so that a header is
// checked once at its end. Nothing here reads or writes outside the octets that it was given.
#pragma once

#include <cstdint>
#include <cstring>

// ---- reading

struct packet_reader {
  const uint8_t* data;
  uint32_t size;
  uint32_t pos;
  bool ok;
};

inline packet_reader reader_over(const uint8_t* data, uint32_t size) { return {data, size, 0, data != nullptr}; }

// The octets from `offset` to the end of the parent, or `len` of them; what lies outside the parent gives a failed
// reader.
inline packet_reader reader_sub(const packet_reader& parent, uint32_t offset, uint32_t len) {
  if (!parent.ok || offset > parent.size || len > parent.size - offset) return {nullptr, 0, 0, false};
  return {parent.data + offset, len, 0, true};
}
inline packet_reader reader_sub(const packet_reader& parent, uint32_t offset) {
  return reader_sub(parent, offset, offset <= parent.size ? parent.size - offset : 0);
}

inline uint32_t reader_left(const packet_reader& reader) { return reader.size - reader.pos; }

// `len` octets in place, or null.
inline const uint8_t* reader_bytes(packet_reader& reader, uint32_t len) {
  if (!reader.ok || len > reader_left(reader)) {
    reader.ok = false;
    return nullptr;
  }
  const uint8_t* bytes = reader.data + reader.pos;
  reader.pos += len;
  return bytes;
}

inline uint8_t reader_u8(packet_reader& reader) {
  const uint8_t* bytes = reader_bytes(reader, 1);
  return bytes != nullptr ? bytes[0] : 0;
}
inline uint16_t reader_u16(packet_reader& reader) {
  const uint8_t* bytes = reader_bytes(reader, 2);
  return bytes != nullptr ? static_cast<uint16_t>(bytes[0] << 8 | bytes[1]) : 0;
}
inline uint32_t reader_u32(packet_reader& reader) {
  const uint32_t high = reader_u16(reader);
  return high << 16 | reader_u16(reader);
}

// ---- big-endian access to octets whose presence is known

inline uint16_t line_id_get_u16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
inline uint32_t line_id_get_u32(const uint8_t* p) {
  return static_cast<uint32_t>(line_id_get_u16(p)) << 16 | line_id_get_u16(p + 2);
}
inline int32_t line_id_set_u16(uint8_t* p, uint16_t value) {
  p[0] = static_cast<uint8_t>(value >> 8);
  p[1] = static_cast<uint8_t>(value);
  return 0;
}
inline int32_t line_id_set_u32(uint8_t* p, uint32_t value) {
  line_id_set_u16(p, static_cast<uint16_t>(value >> 16));
  line_id_set_u16(p + 2, static_cast<uint16_t>(value));
  return 0;
}

// ---- writing

struct packet_writer {
  uint8_t* data;
  uint32_t size;
  uint32_t pos;
  bool ok;
};

inline packet_writer writer_over(uint8_t* data, uint32_t size) { return {data, size, 0, data != nullptr}; }

// Room for `len` octets, to be filled by the caller, or null.
inline uint8_t* writer_room(packet_writer& writer, uint32_t len) {
  if (!writer.ok || len > writer.size - writer.pos) {
    writer.ok = false;
    return nullptr;
  }
  uint8_t* room = writer.data + writer.pos;
  writer.pos += len;
  return room;
}

inline void writer_bytes(packet_writer& writer, const uint8_t* bytes, uint32_t len) {
  uint8_t* room = writer_room(writer, len);
  // Not memcpy: g++ makes a slow string instruction of it for x86 where it knows a bound of the length.
  if (room != nullptr && len > 0) std::memmove(room, bytes, len);
}
inline void writer_u8(packet_writer& writer, uint8_t value) {
  uint8_t* room = writer_room(writer, 1);
  if (room != nullptr) *room = value;
}
inline void writer_u16(packet_writer& writer, uint16_t value) {
  uint8_t* room = writer_room(writer, 2);
  if (room != nullptr) line_id_set_u16(room, value);
}
inline void writer_u32(packet_writer& writer, uint32_t value) {
  uint8_t* room = writer_room(writer, 4);
  if (room != nullptr) line_id_set_u32(room, value);
}

// ---- options and tags

// Octets of the code and of the length in front of each value.
struct option_rule {
  uint8_t code_octets;
  uint8_t length_octets;
};
constexpr option_rule DHCP4_OPTION_RULE = {1, 1}; // RFC 2132; also the sub-options of RFC 3046 and of the PPPoE tag
constexpr option_rule DHCP6_OPTION_RULE = {2, 2}; // RFC 8415, section 21.1
constexpr option_rule PPPOE_TAG_RULE = {2, 2};    // RFC 2516, section 4

enum option_result : uint8_t {
  OPTION_FOUND,   // whole
  OPTION_END,     // nothing left
  OPTION_SHORT,   // too few octets left for a code and a length
  OPTION_OVERRUN, // code and length are there, the value runs past the end
};

struct option_view {
  uint32_t whole_len; // code, length and value, as the length field says
  uint16_t code;
  uint16_t length;      // of the value, as the length field says
  const uint8_t* value; // its first octet; all `length` octets are there only when OPTION_FOUND
};

// What a walk has still in front of it.
struct option_walk {
  const uint8_t* at;
  uint32_t left;
};

// The option at the walk's position; moves the walk behind it when it is whole, leaves it in place otherwise.
inline option_result option_next(option_walk& walk, const option_rule& rule, option_view& option) {
  const uint32_t head = static_cast<uint32_t>(rule.code_octets) + rule.length_octets;
  if (walk.left < head) {
    option = {};
    return walk.left == 0 ? OPTION_END : OPTION_SHORT;
  }
  const uint8_t* p = walk.at;
  const uint16_t code = rule.code_octets == 1 ? p[0] : line_id_get_u16(p);
  p += rule.code_octets;
  const uint16_t length = rule.length_octets == 1 ? p[0] : line_id_get_u16(p);
  option = {head + length, code, length, p + rule.length_octets};
  if (option.whole_len > walk.left) return OPTION_OVERRUN;
  walk.at += option.whole_len;
  walk.left -= option.whole_len;
  return OPTION_FOUND;
}
// The same at a reader's position; none in a failed one.
inline option_result option_next(packet_reader& reader, const option_rule& rule, option_view& option) {
  option_walk walk = {reader.data + reader.pos, reader.ok ? reader_left(reader) : 0};
  const option_result result = option_next(walk, rule, option);
  if (result == OPTION_FOUND) reader.pos += option.whole_len;
  return result;
}
