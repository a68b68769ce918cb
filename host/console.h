// The two standard streams. The agent prints to standard output by its nature: that is moved to a pipe, whose reader
// puts the agent's lines on standard error, so that standard output carries the host's own tables and JSON alone.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// What becomes of the agent's lines.
enum console_mode {
  CONSOLE_HOLD,  // kept until they are asked for: start-up chatter, and reports
  CONSOLE_RELAY, // put on standard error as they come, with "agent: " before them
};

// What happens to notes and the agent's lines while nobody reads standard error.
enum console_patience {
  CONSOLE_WAIT, // their writers wait: nothing is lost
  CONSOLE_DROP, // they are dropped and counted: the agent never waits for a terminal
};

// Moves standard output; the first call of a run, before any thread. Throws host_failure (EXIT_AGENT).
void console_open(console_patience patience);
// Puts standard output back and ends the reader. What is still held is lost.
void console_close();

// Publishes the agent's lines as host/console_path.h says, until console_close. Throws host_failure (EXIT_AGENT) when
// another host publishes there; when it cannot publish at all, it warns. Where: empty then.
std::string console_publish();

// The user's standard output.
FILE* console_out();

// One line on standard error, from any thread, in the order of the calls; takes a progress bar away first.
void console_note(std::string_view text);

void console_set_mode(console_mode mode);
// The lines held so far, and none is held any more. All that was printed before the call is in.
std::vector<std::string> console_take_held();

// Calls `seen` on the reader's thread when the agent prints a line with `text` in it, once.
void console_watch(std::string text, std::function<void()> seen);

// A bar on standard error: `share` 0 to 1. Draws on a terminal only, and not within the first half second.
void console_progress(double share);
void console_progress_end();
