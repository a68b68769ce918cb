// Where the host publishes the agent's console, and how it is read; shared with the programs that read it.
#pragma once

#include <cstdlib>
#include <string>
#include <unistd.h>

// A Unix stream socket, open to its owner alone. Who connects gets each line that the agent prints from then on, ended
// by '\n'. A reader that sends CONSOLE_MARK_REQUEST gets CONSOLE_MARK_LINE behind all that the agent had printed
// before. A reader that does not keep up is disconnected.
constexpr char CONSOLE_MARK_REQUEST = '?';
constexpr const char* CONSOLE_MARK_LINE = "\x01"
                                          "end";

// LINE_ID_CONSOLE, otherwise /tmp/lineid-<user>/<prefix>.console, <prefix> being LINE_ID_IPC_PREFIX or "lineid".
inline std::string console_socket_path() {
  if (const char* given = std::getenv("LINE_ID_CONSOLE"); given != nullptr && *given != '\0') return given;
  const char* prefix = std::getenv("LINE_ID_IPC_PREFIX");
  if (prefix == nullptr || *prefix == '\0') prefix = "lineid";
  return "/tmp/lineid-" + std::to_string(geteuid()) + "/" + prefix + ".console";
}
