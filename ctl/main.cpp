// lineidctl: the operator's command line of the Line ID agent, over the public header alone.
#include "ctl/cli.h"
#include "ctl/failure.h"
#include "ctl/output.h"

#include <csignal>
#include <sstream>

namespace {

int run(int argc, char** argv) {
  command_line line;
  try {
    line.app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    std::ostringstream help;
    std::ostringstream complaint;
    const int code = line.app.exit(error, help, complaint);
    std::fputs(help.str().c_str(), output());
    if (code != 0) complain(complaint.str().substr(0, complaint.str().find_last_not_of('\n') + 1));
    return code == 0 ? STATUS_DONE : STATUS_USAGE;
  }
  line.run();
  return STATUS_DONE;
}

} // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  try {
    output_open();
    int status = STATUS_DONE;
    try {
      status = run(argc, argv);
    } catch (const ctl_failure& failure) {
      complain(failure.what());
      status = failure.status();
    }
    output_close();
    return status;
  } catch (const ctl_failure& failure) {
    std::fprintf(stderr, "lineidctl: %s\n", failure.what());
    return failure.status();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "lineidctl: %s\n", failure.what());
    return STATUS_FAILED;
  }
}
