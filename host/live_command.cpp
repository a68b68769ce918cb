// Arguments of lineid-host live.
#include "host/live_command.h"

#include <set>

namespace {

constexpr const char* ABOUT =
    "Bridge subscriber interfaces and an uplink, as an access node does, and put the subscribers' DHCPv4, DHCPv6 and\n"
    "PPPoE Discovery frames through the agent. Everything else crosses as it is; subscribers reach the uplink alone,\n"
    "never each other. Other processes configure the agent while it runs. Interfaces that are missing or down are\n"
    "waited for. SIGINT and SIGTERM end it: what crossed is then printed on standard output.\n\n"
    "Needs root, or CAP_NET_RAW and CAP_NET_ADMIN. The interfaces should have no addresses of their own.\n\n"
    "Example: lineid-host live --subscriber eth1,eth2 --uplink eth0 --lines lines.toml";

constexpr uint32_t DEFAULT_POOL = 1900; // as many as the agent's queue has places for frames
constexpr size_t MAX_NAME = 15;         // characters of an interface's name
constexpr size_t MAX_SUBSCRIBERS = 1024;

std::string check_name(const std::string& name) {
  const bool good = !name.empty() && name.size() <= MAX_NAME && name.find('/') == std::string::npos;
  return good ? "" : "\"" + name + "\" cannot be the name of an interface";
}

} // namespace

CLI::App* add_live(CLI::App& app, live_arguments& given) {
  CLI::App* live = app.add_subcommand("live", ABOUT);
  live->add_option("-s,--subscriber", given.options.subscribers, "interfaces that subscribers are on, by commas")
      ->required()
      ->delimiter(',')
      ->check(check_name);
  live->add_option("-u,--uplink", given.options.uplink, "interface towards the servers")->required()->check(check_name);
  live->add_option("-l,--lines", given.lines,
                   "line map (TOML): lines, devices and settings of the agent; without it everything is on and all "
                   "frames belong to one line");
  given.options.pool_units = DEFAULT_POOL;
  live->add_option("--pool", given.options.pool_units, "frames that the agent can hold at a time")
      ->check(CLI::Range(1U, 100000U))
      ->capture_default_str();
  live->callback([&given] {
    std::set<std::string> names{given.options.uplink};
    for (const std::string& name : given.options.subscribers) {
      if (!names.insert(name).second) throw CLI::ValidationError("interface " + name + " is given twice");
    }
    if (names.size() > MAX_SUBSCRIBERS + 1) {
      throw CLI::ValidationError("at most " + std::to_string(MAX_SUBSCRIBERS) + " subscriber interfaces");
    }
  });
  return live;
}
