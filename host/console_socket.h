// The socket on which the agent's console is published, see host/console_path.h.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

// Publishes; readers are served on a thread of its own. `ask_mark` is called there when the reader of this number asks
// for a mark; console_socket_mark answers it. Throws host_failure when another host publishes here; warns when it
// cannot publish. The path, or empty.
std::string console_socket_open(std::function<void(uint32_t reader)> ask_mark);
void console_socket_close();

// To every reader; to one. Never wait; any thread, published or not.
void console_socket_send(std::string_view line);
void console_socket_mark(uint32_t reader);
