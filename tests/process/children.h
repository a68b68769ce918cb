// Child processes of a test program, and the shared objects of both.
//
// Before anything reads the environment the program sets a prefix of its own, "test-<pid>", and a tick of 1 ms unless
// there is one; at its end it unlinks every object of the prefix. Its children have the same prefix.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>

// Run `body` in a forked child, whose exit status is body's result; a lost parent takes it with it. Fork only while no
// other thread runs.
pid_t start_child(const std::function<int()>& body);
// The child's exit status; 128 plus the signal when it was killed; -1 when it has not ended in good time.
int wait_child(pid_t child);
void kill_child(pid_t child); // SIGKILL, and wait
// What `body` gives in a child of its own, which has to end in good order; 2 KiB at most.
std::string text_of_child(const std::function<std::string()>& body);

int64_t now_us(); // monotonic
void pause_us(int64_t us);
inline int64_t now_ms() { return now_us() / 1000; }
inline void pause_ms(int64_t ms) { pause_us(1000 * ms); }

// Path of a shared object of the prefix, how many there are, and away with them.
std::string shared_path(const std::string& suffix);
size_t shared_objects();
void unlink_shared_objects();
