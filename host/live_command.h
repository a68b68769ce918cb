// The live host's part of the command line.
#pragma once

#include "host/live.h"

#include <CLI/CLI.hpp>

struct live_arguments {
  live_options options = {};
  std::string lines;
};

CLI::App* add_live(CLI::App& app, live_arguments& given);
