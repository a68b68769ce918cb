// The five host operations that the agent calls out to.
#include "core/device_if.h"

line_id_device_if g_device_if;

int32_t line_id_register_common_device_func(uint8_t, const line_id_device_if* operations) {
  g_device_if = *operations;
  return LINE_ID_OK;
}

int32_t line_id_mac_spoof_alarm_proc(const line_id_alarm* alarm) {
  return g_device_if.mac_spoof_alarm != nullptr ? g_device_if.mac_spoof_alarm(alarm) : 0;
}

int32_t line_id_send_eth_pkt(uint8_t oltid, uint8_t direct, uint16_t port, const uint8_t* frame, uint32_t len) {
  return g_device_if.send_eth_frame != nullptr ? g_device_if.send_eth_frame(oltid, direct, port, frame, len) : 0;
}
