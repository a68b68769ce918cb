// Console messages and the host's log channel.
#include "core/log.h"

#include "core/device_if.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

std::atomic<uint8_t> g_line_id_dbg_level{0};
std::atomic<uint32_t> g_line_id_debug_bits{0};

namespace {

constexpr size_t HOST_LOG_SIZE = 256;
constexpr size_t LINE_SIZE = 1536; // longer than any message of the agent; a longer one is printed in pieces

// One console message as one write, so that lines of two threads do not mix.
__attribute__((format(printf, 4, 0))) void print_message(const char* tag, const char* function, int line,
                                                         const char* format, va_list args) {
  char text[LINE_SIZE];
  const size_t format_len = std::strlen(format);
  const bool plain_line = format_len > 0 && format[format_len - 1] == '\r';
  const char* end = plain_line ? "\n\r\n" : "\r\n";

  const int head = std::snprintf(text, sizeof(text), "%s%s(%d): ", tag, function, line);
  va_list again;
  va_copy(again, args);
  const int body = std::vsnprintf(text + head, sizeof(text) - static_cast<size_t>(head), format, again);
  va_end(again);
  if (body >= 0 && static_cast<size_t>(head) + static_cast<size_t>(body) + 4 < sizeof(text)) {
    std::strcpy(text + head + body, end);
    std::fputs(text, stdout);
    return;
  }
  std::printf("%s%s(%d): ", tag, function, line);
  std::vprintf(format, args);
  std::fputs(end, stdout);
}

__attribute__((format(printf, 1, 0))) int32_t print_host_log(const char* format, va_list args) {
  if (g_device_if.log_output == nullptr) return 0;
  char text[HOST_LOG_SIZE] = {};
  const int full_len = std::vsnprintf(text, sizeof(text), format, args);
  g_device_if.log_output(text, full_len, text);
  return full_len;
}

} // namespace

int32_t line_id_log_print_proc(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int32_t full_len = print_host_log(format, args);
  va_end(args);
  return full_len;
}

void line_id_log_error(const char* function, int line, const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  print_message("[LNID_ERR]", function, line, format, args);
  print_host_log(format, again);
  va_end(again);
  va_end(args);
}

void line_id_log_trace(const char* tag, const char* function, int line, const char* format, ...) {
  va_list args;
  va_start(args, format);
  print_message(tag, function, line, format, args);
  va_end(args);
}

void line_id_dbg_type_enable(uint32_t type) {
  type &= 0xFF;
  if (type < 32) g_line_id_debug_bits.fetch_or(1U << type, std::memory_order_relaxed);
}

void line_id_dbg_type_disable(uint32_t type) {
  type &= 0xFF;
  if (type < 32) g_line_id_debug_bits.fetch_and(~(1U << type), std::memory_order_relaxed);
}

int32_t line_id_dbg_level_set(uint32_t level) {
  level &= 0xFF;
  if (level < 3) {
    g_line_id_dbg_level.store(static_cast<uint8_t>(level), std::memory_order_relaxed);
    return LINE_ID_OK;
  }
  LINE_ID_ERROR("line_id_dbg_level_set failed(%d).\r\n", LINE_ID_ERR_LEVEL);
  return LINE_ID_ERR_LEVEL;
}

int32_t line_id_dbg_buf_print(const uint8_t* buf, uint32_t len) {
  if (buf == nullptr || len == 0) {
    std::puts("buf is NULL!\r");
    return LINE_ID_ERR;
  }
  std::puts("\r\n buf is:\r");
  for (uint32_t i = 0; i < len; ++i) {
    std::printf("%02x ", buf[i]);
    // ODD: the first line holds 17 octets, the later ones 16.
    if (i != 0 && i % 16 == 0) std::puts("");
  }
  std::puts("\r");
  return LINE_ID_OK;
}
