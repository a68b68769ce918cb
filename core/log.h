// Console messages, gated by debug level and category, and the host's log channel.
//
// Errors always print and also reach the host's log; warnings need level 1 and the category's bit, information level 2
// and the bit. A message text ends in "\r\n", or in "\r" for a plain line (the newline is then added). Any thread.
#pragma once

#include "include/line_id.h"

#include <atomic>
#include <cstdint>

// Debug categories: category n is bit 1 << n.
enum line_id_log_category : uint8_t {
  LOG_GENERAL = 1,
  LOG_COMM_TX = 2, // no trace tests these two
  LOG_COMM_RX = 3,
  LOG_CFG = 4,
  LOG_DHCPV4 = 5,
  LOG_DHCPV6 = 6,
  LOG_PPPOE = 7,
  LOG_DEVICE = 8,
  LOG_NONE = 0xFF, // never traced
};

// Hidden where they are declared, too: each trace then reads them without looking their address up.
[[gnu::visibility("hidden")]] extern std::atomic<uint8_t> g_line_id_dbg_level; // 0 to 2; set by the worker, read by all
[[gnu::visibility("hidden")]] extern std::atomic<uint32_t> g_line_id_debug_bits;

// Hand a text to the host's log, cut to 255 characters; the full length, or 0 without a log callback.
int32_t line_id_log_print_proc(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Set or clear one category (0 to 31; others change nothing). The level: 0, or -31 above 2.
void line_id_dbg_type_enable(uint32_t type);
void line_id_dbg_type_disable(uint32_t type);
int32_t line_id_dbg_level_set(uint32_t level);

// Hex dump to the console: 0, or -1 when there is nothing.
int32_t line_id_dbg_buf_print(const uint8_t* buf, uint32_t len);

// Behind the macros; cold, so that what only they need is kept out of the way of frames.
void line_id_log_error(const char* function, int line, const char* format, ...)
    __attribute__((cold, format(printf, 3, 4)));
void line_id_log_trace(const char* tag, const char* function, int line, const char* format, ...)
    __attribute__((cold, format(printf, 4, 5)));

// Whether a trace of any category may print. What every frame goes through is a template of its category: its entry
// asks this once, and takes the instance for LOG_NONE, in which no trace is left, when it is false.
inline bool line_id_traces_on() {
#ifdef LINE_ID_WITHOUT_TRACES // a yardstick of bench/, which tracing costs nothing
  return false;
#else
  return __builtin_expect(g_line_id_dbg_level.load(std::memory_order_relaxed) != 0, 0);
#endif
}

// The way into the instance with traces. A function of its own, so that they cost the entry no registers.
template <auto function, class... Arguments>
__attribute__((cold, noinline)) auto line_id_traced(Arguments... arguments) {
  return function(arguments...);
}

inline bool line_id_log_enabled([[maybe_unused]] uint8_t category, [[maybe_unused]] uint8_t level) {
#ifdef LINE_ID_WITHOUT_TRACES
  return false;
#else
  if (category == LOG_NONE) return false;
  return __builtin_expect(g_line_id_dbg_level.load(std::memory_order_relaxed) >= level, 0) &&
         (g_line_id_debug_bits.load(std::memory_order_relaxed) >> category & 1U) != 0;
#endif
}

#define LINE_ID_ERROR(...) line_id_log_error(__func__, __LINE__, __VA_ARGS__)
#define LINE_ID_WARN(category, ...)                                                                                    \
  do {                                                                                                                 \
    if (line_id_log_enabled(category, 1)) line_id_log_trace("[LNID_WARN]", __func__, __LINE__, __VA_ARGS__);           \
  } while (0)
#define LINE_ID_INFO(category, ...)                                                                                    \
  do {                                                                                                                 \
    if (line_id_log_enabled(category, 2)) line_id_log_trace("[LNID_INFO]", __func__, __LINE__, __VA_ARGS__);           \
  } while (0)
