// Child processes for the platform tests, and the objects they share.
//
// Before the first call into the platform layer this program sets a prefix of its own ("test-<pid>") and a tick of 1
// ms, unless the environment has them already; at its end it unlinks every object of the prefix.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>

// Run `body` in a forked child, whose exit status is body's result. Fork only while no other thread runs.
pid_t start_child(const std::function<int()>& body);
// The child's exit status; 128 plus the signal when it was killed; -1 when it does not end within ten seconds.
int wait_child(pid_t child);
void kill_child(pid_t child); // SIGKILL, and wait

// Start this program anew for one disabled test, with two more environment variables: its exit status.
int run_anew(const char* test, const char* name1, const char* value1, const char* name2, const char* value2);

int64_t now_ms();       // monotonic
void pause_ms(int64_t); // sleep
std::string shared_file(const char* suffix);
