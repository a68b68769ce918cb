// What ends a run: an exit status and a sentence for the operator.
#pragma once

#include <stdexcept>
#include <string>

enum exit_status : int {
  STATUS_DONE = 0,
  STATUS_FAILED = 1,     // something unforeseen: no memory, output that cannot be written
  STATUS_USAGE = 2,      // wrong arguments
  STATUS_NO_AGENT = 3,   // no agent runs here, or it ended meanwhile
  STATUS_PERMISSION = 4, // the agent's shared objects belong to another user
  STATUS_TIMEOUT = 5,    // the agent runs, but did not answer in time
  STATUS_REFUSED = 6,    // a value out of range, or refused by the call
  STATUS_NOT_TAKEN = 7,  // sent, but the agent reports another value
  STATUS_STATE_FILE = 8, // the file of the wanted state is wrong or cannot be read
  STATUS_TEMPLATE = 9,   // a template is wrong
};

// For --help and the page of the program.
constexpr const char* EXIT_STATUSES =
    "Exit status: 0 done, 1 unforeseen failure, 2 wrong arguments, 3 no agent is running,\n"
    "4 the agent belongs to another user, 5 the agent does not answer in time,\n"
    "6 value refused, 7 the agent did not take a value over,\n"
    "8 the state file is wrong, 9 the template is wrong.";

class ctl_failure : public std::runtime_error {
public:
  ctl_failure(exit_status status, const std::string& text) : std::runtime_error(text), status_(status) {}
  exit_status status() const { return status_; }

private:
  exit_status status_;
};
