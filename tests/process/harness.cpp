// The agent process.
#include "tests/process/harness.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int64_t START_PATIENCE_US = 60000000;
constexpr timeval ANSWER_PATIENCE = {30, 0};

} // namespace

agent_process::agent_process(bool quiet) {
  output_ = quiet ? open("/dev/null", O_WRONLY | O_CLOEXEC) : memfd_create("output", MFD_CLOEXEC);
  start();
}

agent_process::~agent_process() {
  close(socket_);
  const int code = pid_ != 0 ? wait_child(pid_) : 0;
  EXPECT_EQ(code, 0) << "the agent ends in good order";
  close(output_);
}

void agent_process::start() {
  int ends[2] = {-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
  setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &ANSWER_PATIENCE, sizeof(ANSWER_PATIENCE));
  socket_ = ends[0];
  pid_ = start_child([&] {
    dup2(ends[1], 0);
    dup2(output_, 1);
    execl(AGENT_PROGRAM, "agent", nullptr);
    return 127;
  });
  close(ends[1]);
  const octets frame = discover();
  agent_reply reply = {};
  const int64_t end = now_us() + START_PATIENCE_US;
  do { // refused until the worker is up
    reply = ask(OP_FEED, frame, test_line());
  } while (reply.len == 0 && !testing::Test::HasFatalFailure() && now_us() < end);
  worker_ = reply.worker;
  ASSERT_NE(worker_, 0) << "the agent does not start";
  events();
}

void agent_process::kill() {
  kill_child(pid_);
  close(socket_);
  socket_ = -1;
  pid_ = 0;
}

void agent_process::restart() {
  if (pid_ != 0) kill();
  start();
}

agent_reply agent_process::ask(agent_op op, uint32_t times) { return ask(op, {}, {}, 1, times); }

agent_reply agent_process::ask(agent_op op, const octets& frame, const line_id_append_info& line, uint8_t direct,
                               uint32_t times) {
  agent_request request = {};
  request.op = op;
  request.times = times;
  request.len = static_cast<uint32_t>(frame.size());
  request.direct = direct;
  request.line = line;
  if (!frame.empty()) std::memcpy(request.frame, frame.data(), frame.size());
  agent_reply reply = {};
  const bool asked = send(socket_, &request, sizeof(request), MSG_NOSIGNAL) == static_cast<ssize_t>(sizeof(request));
  const bool answered = asked && recv(socket_, &reply, sizeof(reply), 0) == static_cast<ssize_t>(sizeof(reply));
  [&] { ASSERT_TRUE(answered) << "no answer from the agent process to request " << op; }();
  return reply;
}

octets agent_process::feed(const octets& frame, const line_id_append_info& line, uint8_t direct) {
  const agent_reply reply = ask(OP_FEED, frame, line, direct);
  return {reply.octets, reply.octets + reply.len};
}

std::string agent_process::events() {
  const agent_reply reply = ask(OP_EVENTS);
  return {reinterpret_cast<const char*>(reply.octets), reply.len};
}

std::string agent_process::output() {
  ask(OP_FLUSH);
  std::string text;
  char part[4096];
  for (ssize_t got = 1; got > 0;) {
    got = pread(output_, part, sizeof(part), output_read_);
    if (got <= 0) break;
    text.append(part, static_cast<size_t>(got));
    output_read_ += got;
  }
  return text;
}

std::string agent_process::sub_option(const line_id_append_info& line, uint8_t code) {
  constexpr size_t OPTIONS = 14 + 20 + 8 + 240;
  const octets frame = feed(discover(), line);
  for (size_t at = OPTIONS; at + 1 < frame.size() && frame[at] != 255; at += 2U + frame[at + 1]) {
    if (frame[at] != 82) continue;
    for (size_t sub = at + 2; sub + 1 < at + 2U + frame[at + 1]; sub += 2U + frame[sub + 1]) {
      if (frame[sub] == code)
        return {frame.begin() + static_cast<long>(sub) + 2,
                frame.begin() + static_cast<long>(sub) + 2 + frame[sub + 1]};
    }
  }
  return frame.empty() ? "no frame" : "none";
}

uint32_t agent_process::room() {
  EXPECT_EQ(ask(OP_SETTLE).result, 0);
  const agent_reply held = ask(OP_HOLD, discover(), test_line());
  EXPECT_EQ(held.result, 0);
  const agent_reply full = ask(OP_POST, discover(), test_line(), 1, 2 * POOL_UNITS);
  EXPECT_EQ(full.result, -45);
  ask(OP_RELEASE);
  EXPECT_EQ(ask(OP_SETTLE).result, 0);
  return full.counts.accepted - held.counts.accepted + 1;
}

line_id_append_info test_line(uint8_t oltid) {
  line_id_append_info line = {};
  line.svlan = 100;
  line.cvlan = 200;
  line.onu_ponno = 5;
  line.onu_portid = 7;
  line.onu_gemid = 1001;
  line.onu_authno = 42;
  line.ext[LINE_ID_EXT_OLTID] = oltid;
  line.ext[LINE_ID_EXT_LINE_ID_SWITCH] = 1;
  return line;
}

octets discover() { return eth().dhcp4(DISCOVER).option(53, {DISCOVER}).end(); }

uint32_t setting(const char* name, uint32_t otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? static_cast<uint32_t>(std::strtoul(text, nullptr, 10)) : otherwise;
}

uint32_t tick_us() { return setting("LINE_ID_TICK_US", 10000); }
