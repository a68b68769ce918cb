// Standard error, written on a thread of its own, so that nothing else waits for who reads it. The calls for all are in
// host/console.h.
#pragma once

// `may_drop`: notes are dropped and counted while standard error takes none; otherwise their writers wait.
void console_notes_open(bool may_drop);
// Writes what is left, unless standard error takes nothing for half a second.
void console_notes_close();
