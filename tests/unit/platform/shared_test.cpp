// Shared records, the claim of a prefix, and the settings of a deployment.
#include "platform/pal.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/pal_settings.h"
#include "tests/process/children.h"

namespace {

constexpr uint32_t AREA = 307;

// An object as somebody else left it.
void leave_object(const char* suffix, const void* content, size_t size, uid_t owner) {
  const int fd = open(shared_path(suffix).c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(write(fd, content, size), static_cast<ssize_t>(size));
  ASSERT_EQ(fchown(fd, owner, static_cast<gid_t>(-1)), 0);
  close(fd);
}

TEST(shared_memory, is_zeroed_and_one_per_key) {
  auto* area = static_cast<uint8_t*>(pal_share_mem_init(1000, AREA));
  ASSERT_NE(area, PAL_NO_MEM);
  for (uint32_t i = 0; i < AREA; ++i) ASSERT_EQ(area[i], 0);
  EXPECT_EQ(pal_share_mem_init(1000, AREA), area);
  EXPECT_NE(pal_share_mem_init(2000, AREA), area);
  const pid_t child = start_child([&] { return std::memcpy(area + 300, "seven b", 7) != nullptr ? 0 : 1; });
  EXPECT_EQ(wait_child(child), 0);
  EXPECT_EQ(std::memcmp(area + 300, "seven b", 7), 0);
}

TEST(shared_memory, refuses_another_size_or_owner) {
  EXPECT_EQ(pal_share_mem_init(3000, 0), PAL_NO_MEM);
  ASSERT_NE(pal_share_mem_init(3000, AREA), PAL_NO_MEM);
  EXPECT_EQ(pal_share_mem_init(3000, AREA + 1), PAL_NO_MEM);
  const uint8_t content[AREA] = {};
  leave_object("mem.3001", content, AREA - 1, geteuid());
  EXPECT_EQ(pal_share_mem_init(3001, AREA), PAL_NO_MEM);
  if (geteuid() != 0) GTEST_SKIP() << "another owner needs root";
  leave_object("mem.3002", content, AREA, 12345);
  EXPECT_EQ(pal_share_mem_init(3002, AREA), PAL_NO_MEM);
}

TEST(shared_memory, a_record_half_made_is_finished_and_a_foreign_one_refused) {
  const uint32_t half_made[2] = {0, 0x55};
  leave_object("sem.half", half_made, sizeof(half_made), geteuid());
  pal_sem sem = {};
  ASSERT_NE(pal_sem_open(&sem, 1, "half", 0), nullptr);
  EXPECT_EQ(pal_sem_count(&sem), 0);
  const uint32_t foreign[2] = {0x12345678, 1};
  leave_object("sem.foreign", foreign, sizeof(foreign), geteuid());
  EXPECT_EQ(pal_sem_open(&sem, 1, "foreign", 1), nullptr);
}

TEST(service_claim, belongs_to_one_process_until_it_dies) {
  EXPECT_EQ(pal_service_is_claimed(), 0);
  EXPECT_NE(access(shared_path("claim").c_str(), F_OK), 0) << "asking created the object";

  pal_sem claimed = {};
  ASSERT_NE(pal_sem_open(&claimed, 1, "claimed", 0), nullptr);
  const pid_t child = start_child([&] {
    if (pal_service_claim() != 0) return 1;
    pal_sem_give(&claimed);
    pause_ms(60000);
    return 0;
  });
  ASSERT_EQ(pal_sem_take(&claimed, 5000), 0);
  EXPECT_EQ(pal_service_is_claimed(), 1);
  EXPECT_EQ(pal_service_claim(), -1);
  EXPECT_EQ(pal_service_is_claimed(), 1) << "a refused claim freed it";
  kill_child(child);
  EXPECT_EQ(pal_service_is_claimed(), 0);

  EXPECT_EQ(pal_service_claim(), 0);
  EXPECT_EQ(pal_service_claim(), 0);
  EXPECT_EQ(pal_service_is_claimed(), 1);
  const auto ask = [] { return pal_service_is_claimed() * 2 + (pal_service_claim() == -1 ? 1 : 0); };
  EXPECT_EQ(wait_child(start_child(ask)), 3);
  EXPECT_EQ(wait_child(start_child(ask)), 3) << "the first child's end freed it";
  pal_service_release();
  EXPECT_EQ(pal_service_is_claimed(), 0);
  EXPECT_EQ(wait_child(start_child([] { return pal_service_claim() == 0 ? 0 : 1; })), 0);
}

const std::string LONGEST(64, 'p');
const struct {
  std::string prefix, tick, found; // "<tick length> <name of x>"
} SETTINGS[] = {
    {"Olt-1.a_b", "100", "100 /Olt-1.a_b.x"}, {LONGEST, "1000000", "1000000 /" + LONGEST + ".x"},
    {LONGEST + "p", "99", "10000 /lineid.x"}, {"", "", "10000 /lineid.x"},
    {"a/b", "1000001", "10000 /lineid.x"},    {"a b", "5000x", "10000 /lineid.x"},
    {"\xc3\xa9", "-1000", "10000 /lineid.x"},
};

// Run by the next test, in a program of its own: settings are read once.
TEST(settings, DISABLED_of_a_row) {
  const auto& row = SETTINGS[std::atoi(std::getenv("ROW"))];
  setenv("LINE_ID_IPC_PREFIX", row.prefix.c_str(), 1);
  setenv("LINE_ID_TICK_US", row.tick.c_str(), 1);
  const uint32_t ticked = pal_tickget(); // the kernel's tick, 10 ms at most, may lie between it and the clock
  const uint32_t behind = static_cast<uint32_t>(now_us() / pal_tick_us()) - ticked;
  const bool keeps_time = behind <= 20000 / pal_tick_us() + 1;
  _exit(keeps_time && std::to_string(pal_tick_us()) + " " + pal_object_name("x").data() == row.found ? 0 : 1);
}

TEST(settings, are_taken_when_they_are_valid) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe");
  for (size_t i = 0; i < std::size(SETTINGS); ++i) {
    const auto run_row = [&program, i] {
      setenv("ROW", std::to_string(i).c_str(), 1);
      execl(program.c_str(), "test", "--gtest_also_run_disabled_tests", "--gtest_filter=settings.DISABLED_of_a_row",
            nullptr);
      return 127;
    };
    EXPECT_EQ(wait_child(start_child(run_row)), 0) << SETTINGS[i].found;
  }
}

} // namespace
