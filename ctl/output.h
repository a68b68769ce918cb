// The standard streams. The library prints to standard output by its nature: what it prints goes to standard error, so
// that standard output carries the program's own words alone.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

// Diverts the library's lines; the first call of a run. Throws ctl_failure.
void output_open();
// Throws ctl_failure when something of the output could not be written; the last call of a run.
void output_close();

// The operator's standard output.
FILE* output();
void output_line(std::string_view text);
// One line on standard error, with "lineidctl: " before it.
void complain(std::string_view text);

// Runs `call`, whose words are worth reading only when it fails: they are dropped when it gives 0 or more.
int output_hush(const std::function<int()>& call);
