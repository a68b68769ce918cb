// Carries out the commands that clients have put into the command areas. The worker only.
#pragma once

#include <array>
#include <cstdint>

// Commands: handlers check the payload's length, in any value, and call the store. The result only reaches the log.
using line_id_set_handler = int32_t (*)(uint8_t oltid, const uint8_t* payload, int32_t len);
// Queries: handlers write the reply (room for 300 octets) and its length.
using line_id_get_handler = int32_t (*)(uint8_t oltid, uint8_t* reply, uint32_t* len);
// Reports.
using line_id_show_handler = int32_t (*)(uint8_t oltid);

constexpr uint32_t LINE_ID_SET_CODES = 51;
constexpr uint32_t LINE_ID_GET_CODES = 46;
constexpr uint32_t LINE_ID_SHOW_CODES = 6;

// By command code; null where there is no such command.
extern const std::array<line_id_set_handler, LINE_ID_SET_CODES> line_id_set_proc_func;
extern const std::array<line_id_get_handler, LINE_ID_GET_CODES> line_id_get_proc_func;
extern const std::array<line_id_show_handler, LINE_ID_SHOW_CODES> line_id_show_proc_func;

// Run the command in the set area of an instance and give set_mem_mutex back. 0 (whatever became of the command), or
// -110 without an area; the mutex is given in any case.
int32_t line_id_set_cfg_msg_proc(uint8_t oltid);
// Answer a query in the get area of an instance and give get_mem_sync. 0, or -110 without an area; the signal is given
// in any case. A code without handler gets its own code into the area and leaves the rest.
int32_t line_id_get_cfg_msg_proc(uint8_t oltid, uint16_t code);
// Print a report. Always 0.
int32_t line_id_show_cfg_msg_proc(uint8_t oltid, uint16_t code);
