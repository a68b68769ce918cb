// The only reader of the environment.
#include "platform/pal_settings.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr const char* DEFAULT_PREFIX = "lineid";
constexpr size_t MAX_PREFIX_LEN = 64;
constexpr uint32_t MIN_TICK_US = 100;
constexpr uint32_t MAX_TICK_US = 1000000;

struct settings {
  char prefix[MAX_PREFIX_LEN + 1];
  uint32_t tick_us;
};

bool is_prefix(const char* text) {
  constexpr const char* ALLOWED = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
  const size_t len = std::strlen(text);
  return len >= 1 && len <= MAX_PREFIX_LEN && std::strspn(text, ALLOWED) == len;
}

settings read_settings() {
  settings result = {};
  const char* prefix = secure_getenv("LINE_ID_IPC_PREFIX");
  if (prefix == nullptr || !is_prefix(prefix)) prefix = DEFAULT_PREFIX;
  std::snprintf(result.prefix, sizeof(result.prefix), "%s", prefix);

  result.tick_us = PAL_DEFAULT_TICK_US;
  if (const char* tick = secure_getenv("LINE_ID_TICK_US")) {
    const char* end = tick + std::strlen(tick);
    uint32_t value = 0;
    const auto [stop, error] = std::from_chars(tick, end, value);
    const bool valid = error == std::errc() && stop == end && value >= MIN_TICK_US && value <= MAX_TICK_US;
    if (valid) result.tick_us = value;
  }
  return result;
}

const settings& get_settings() {
  static const settings g_settings = read_settings();
  return g_settings;
}

} // namespace

uint32_t pal_tick_us() { return get_settings().tick_us; }

pal_object_path pal_object_name(const char* suffix) {
  pal_object_path path = {};
  const int len = std::snprintf(path.data(), path.size(), "/%s.%s", get_settings().prefix, suffix);
  if (len < 0 || static_cast<size_t>(len) >= path.size()) path[0] = '\0';
  return path;
}
