// What ends a run: an exit code and a sentence for the user.
#pragma once

#include <stdexcept>
#include <string>

enum exit_code : int {
  EXIT_OK = 0,
  EXIT_AGENT = 1,      // the agent did not start or stopped answering
  EXIT_USAGE = 2,      // wrong arguments
  EXIT_CAPTURE = 3,    // the capture cannot be read
  EXIT_LINES = 4,      // the line map cannot be read
  EXIT_OUTPUT = 5,     // the output cannot be written
  EXIT_PRIVILEGES = 6, // packet sockets are not allowed
  EXIT_INTERRUPTED = 130,
};

class host_failure : public std::runtime_error {
public:
  host_failure(exit_code code, const std::string& text) : std::runtime_error(text), code_(code) {}
  exit_code code() const { return code_; }

private:
  exit_code code_;
};
