// Reports: the agent prints them on its own standard output, which the host may publish on a socket.
#pragma once

#include <functional>
#include <string>

enum report_outcome {
  REPORT_READ,
  REPORT_ELSEWHERE, // no console is published: the agent printed the report for itself
};

// Attaches to the published console, calls `ask` (which has the agent print and returns when it is done), and gives
// what the agent printed meanwhile. Throws ctl_failure when the console falls silent, and what `ask` throws.
report_outcome console_report(const std::function<void()>& ask, std::string& report);
