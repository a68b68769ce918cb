// Completion for bash.
#pragma once

#include "ctl/cli.h"

#include <string>

// The script, from the description of the command line and the table of the settings.
std::string completion_bash(const command_line& line);
