// What a network device leaves to do in a frame: VLAN tags that it took out, checksums and segmentation put off.
#pragma once

#include "host/classify.h"
#include "host/octets.h"

#include <cstdint>

// What stands before a frame on a packet socket with PACKET_VNET_HDR, in host byte order. (The kernel's own record is
// in <linux/virtio_net.h>, which C++ does not accept.)
struct offload_header {
  uint8_t flags = 0;
  uint8_t segmentation = 0; // 0: none
  uint16_t header_len = 0;  // octets before the first segment's payload, or 0
  uint16_t segment_len = 0;
  uint16_t checksum_start = 0;  // where the sum begins that the device is to take
  uint16_t checksum_offset = 0; // from there, of its field
};
constexpr size_t OFFLOAD_LEN = sizeof(offload_header);
static_assert(OFFLOAD_LEN == 10);
constexpr uint8_t OFFLOAD_CHECKSUM = 1; // flag: the checksum is unfinished

// A frame as it crosses a packet socket: the offload header, then the frame, in one piece of memory.

struct wire_frame {
  uint8_t* start; // of the offload header; TAG_LEN writable octets stand before a frame that was received
  size_t len;     // of header and frame

  octet_view frame() const { return {start + OFFLOAD_LEN, len - OFFLOAD_LEN}; }
  offload_header offload() const;
};

// Puts the outermost VLAN tag back, which the kernel keeps beside a received frame, and moves the header's offsets.
void put_tag_back(wire_frame& wire, uint16_t tpid, uint16_t tci);

// Completes a checksum that was left to the device. False when the frame is a segmented one, or the header's offsets
// point outside the frame: it cannot be handed to anyone who reads it.
bool finish_checksum(const wire_frame& wire);

// The frame of a subscriber protocol without what Ethernet padded it with; as it is when its lengths do not add up.
octet_view without_padding(octet_view frame, const frame_class& found);
