// The five host operations that the agent calls out to. Registered as a whole before the worker starts; every slot may
// be empty, and the calling wrapper then returns 0.
#pragma once

#include "include/line_id.h"

struct line_id_inf_info;

// The parameter provider: mode 1 at start-up (info null), mode 2 for a frame. 0 or negative.
using line_id_param_provider = int32_t (*)(uint8_t mode, line_id_param_write_func write, line_id_inf_info* info);

struct line_id_device_if {
  int (*send_eth_frame)(uint8_t oltid, uint8_t direct, uint16_t port, const uint8_t* frame, uint32_t len);
  int (*trap_rule)(uint8_t oltid, uint8_t protocol, uint8_t enable);
  int (*mac_spoof_alarm)(const line_id_alarm* alarm);
  line_id_param_provider param_provider;
  int (*log_output)(const char* text, int32_t len, const char* text_again);
};

extern line_id_device_if g_device_if;

// Take over all five operations; `oltid` is not used. Always 0.
int32_t line_id_register_common_device_func(uint8_t oltid, const line_id_device_if* operations);

// Raise an alarm: the callback's result, or 0 without one.
int32_t line_id_mac_spoof_alarm_proc(const line_id_alarm* alarm);

// Send a frame: the callback's result, or 0 without one. Any thread.
int32_t line_id_send_eth_pkt(uint8_t oltid, uint8_t direct, uint16_t port, const uint8_t* frame, uint32_t len);
