// Another process scribbles over all that it shares with the agent, while frames and honest commands flow.
#include "tests/process/harness.h"

#include <cerrno>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class forged : public testing::Test {
protected:
  // Returns the seconds' honest answers.
  void forge(bool queue_too) {
    const uint32_t seed = setting("LINE_ID_TEST_SEED", std::random_device()());
    const int64_t end = now_us() + 1000000 * static_cast<int64_t>(setting("LINE_ID_TEST_SECONDS", 5));
    ASSERT_EQ(line_id_init_share_resource(nullptr), 0);
    int input[2];
    ASSERT_EQ(pipe(input), 0);
    const std::string queue = shared_path("q.95");
    const pid_t forger = start_child([&] {
      dup2(input[0], 0);
      close(input[1]);
      execl(FORGER_PROGRAM, "forger", std::to_string(seed).c_str(), queue_too ? queue.c_str() : nullptr, nullptr);
      return 127;
    });
    close(input[0]);
    agent_.ask(OP_FLOOD, discover(), test_line());
    uint32_t answers = 0;
    testing::internal::CaptureStdout(); // what the calls say of their failures
    while (now_us() < end) {
      line_id_set_rack_no(4, 5);
      if (line_id_get_rack_no(4) == 5) ++answers;
      line_id_set_option82_enable(FLOOD_INSTANCE, 1);
    }
    testing::internal::GetCapturedStdout();
    close(input[1]);
    EXPECT_EQ(wait_child(forger), 0) << "3: a semaphore counts above 1";
    const agent_counts counts = agent_.ask(OP_FLOOD_STOP).counts;
    std::printf("seed %u: %u honest answers and %u frames meanwhile\n", seed, answers, counts.accepted);
    EXPECT_GT(counts.sent, 0U);
  }

  void expect_honest_calls_work() {
    const int64_t end = now_us() + 20000000;
    for (int right = 0; right < 20 && now_us() < end;) { // forged messages may still be waiting
      right = line_id_set_frame_no(4, 200) == 0 && line_id_get_frame_no(4) == 200 ? right + 1 : 0;
    }
    for (uint16_t i = 1; i <= 100; ++i) {
      ASSERT_EQ(line_id_set_frame_no(4, i), 0);
      ASSERT_EQ(line_id_get_frame_no(4), i);
    }
  }

  // Under AddressSanitizer and UndefinedBehaviorSanitizer its exit code tells of any access out of bounds.
  agent_process agent_{true};
};

TEST_F(forged, commands_messages_and_semaphores_do_no_harm) {
  forge(false);
  EXPECT_EQ(agent_.ask(OP_SETTLE).result, 0) << "every frame taken in has passed the hook";
  expect_honest_calls_work();
  EXPECT_EQ(line_id_set_option82_enable(0, 1), 0);
  EXPECT_EQ(line_id_set_option82_transparent(0, 0), 0);
  expect_honest_calls_work();
  EXPECT_EQ(agent_.room(), POOL_UNITS);
}

// Positions and messages of the queue too.
TEST_F(forged, commands_in_the_queue_are_lost_and_nothing_else) {
  forge(true);
  EXPECT_EQ(agent_.ask(OP_SETTLE).result, 0) << "every frame taken in has passed the hook";
  expect_honest_calls_work();
  EXPECT_EQ(agent_.room(), POOL_UNITS);
  agent_.restart();
  expect_honest_calls_work();
  EXPECT_EQ(agent_.sub_option(test_line(1), 1), CIRCUIT_ID);
  EXPECT_EQ(agent_.room(), POOL_UNITS);
}

TEST_F(forged, processes_of_another_user_cannot_open_anything) {
  ASSERT_EQ(line_id_init_share_resource(nullptr), 0);
  for (const char* suffix :
       {"claim", "mem.1000", "mem.2000", "q.95", "sem.set_mem_mutex", "sem.get_mem_mutex", "sem.get_mem_sync"}) {
    const std::string path = shared_path(suffix);
    struct stat facts = {};
    ASSERT_EQ(stat(path.c_str(), &facts), 0) << suffix;
    EXPECT_EQ(facts.st_mode & 0777, 0600U) << suffix;
    if (geteuid() != 0) continue; // only root can become somebody else
    const pid_t stranger = start_child([&path] {
      if (setgid(65534) != 0 || setuid(65534) != 0) return 1;
      return open(path.c_str(), O_RDONLY) < 0 && errno == EACCES ? 0 : 2;
    });
    EXPECT_EQ(wait_child(stranger), 0) << suffix;
  }
}

} // namespace
