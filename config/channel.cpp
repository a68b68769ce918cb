// Command areas and semaphores of the configuration channel.
#include "config/channel.h"

#include <new>

#include "core/log.h"

namespace {

constexpr uint32_t SET_AREA_KEY = 1000;
constexpr uint32_t GET_AREA_KEY = 2000;
constexpr uint32_t SEM_KIND = 1;
constexpr int32_t TAKE_TICKS = 600;
constexpr int32_t NEVER_OPENED = -1;

// Start-up writes these, one thread at a time; afterwards they are only read.
int32_t g_sem_mode = NEVER_OPENED;
pal_sem g_line_id_set_mem_mutex_tmp;
pal_sem g_line_id_get_mem_mutex_tmp;
pal_sem g_line_id_get_mem_sync_tmp;
line_id_cmd_area* g_private_set_mem[LINE_ID_INSTANCES]; // kept for the next start in in-process mode
line_id_cmd_area* g_private_get_mem[LINE_ID_INSTANCES];

// The helpers below log in the name of the function that calls them.
int32_t fail(const char* function, const char* step, int32_t result) {
  line_id_log_error(function, __LINE__, "%s, failed(%d).\r\n", step, result);
  return result;
}

// A slot that already holds the area is not written: clients may be reading it.
void set_slot(std::atomic<line_id_cmd_area*>& slot, line_id_cmd_area* area) {
  if (slot != area) slot = area;
}

int32_t open_share_area(const char* function, uint32_t key, std::atomic<line_id_cmd_area*>& slot, int32_t result) {
  set_slot(slot, static_cast<line_id_cmd_area*>(pal_share_mem_init(key, sizeof(line_id_cmd_area))));
  return slot != LINE_ID_NO_AREA ? LINE_ID_OK : fail(function, "pal_share_mem_init", result);
}

int32_t open_private_area(const char* function, line_id_cmd_area*& kept, std::atomic<line_id_cmd_area*>& slot) {
  if (kept == nullptr) kept = new (std::nothrow) line_id_cmd_area{};
  set_slot(slot, kept != nullptr ? kept : LINE_ID_NO_AREA);
  return kept != nullptr ? LINE_ID_OK : fail(function, "LNID_CBB_MALLOC", LINE_ID_ERR_MALLOC);
}

line_id_cmd_area* area_of(const std::atomic<line_id_cmd_area*> (&table)[LINE_ID_INSTANCES], uint8_t oltid) {
  line_id_cmd_area* area = oltid < LINE_ID_INSTANCES ? table[oltid].load() : nullptr;
  return area != nullptr ? area : LINE_ID_NO_AREA;
}

int32_t open_sem(const char* function, int32_t mode, const char* name, uint32_t count, pal_sem& storage,
                 std::atomic<pal_sem*>& handle) {
  if (mode == LINE_ID_CROSS_PROCESS) {
    pal_sem* opened = pal_sem_open(&storage, SEM_KIND, name, count);
    handle = opened;
    return opened != nullptr ? LINE_ID_OK : fail(function, "pal_sem_open", LINE_ID_ERR_SEM_OPEN);
  }
  if (pal_sem_create_ex(&storage, SEM_KIND, count, &storage) != 0) {
    return fail(function, "pal_sem_create_ex", LINE_ID_ERR_SEM_CREATE);
  }
  handle = &storage;
  return LINE_ID_OK;
}

int32_t take_sem(const char* function, pal_sem* sem, int32_t result) {
  return pal_sem_take(sem, TAKE_TICKS) == 0 ? LINE_ID_OK : fail(function, "pal_sem_take", result);
}

} // namespace

std::atomic<line_id_cmd_area*> g_line_id_set_mem[LINE_ID_INSTANCES] = {LINE_ID_NO_AREA};
std::atomic<line_id_cmd_area*> g_line_id_get_mem[LINE_ID_INSTANCES] = {LINE_ID_NO_AREA};

std::atomic<pal_sem*> g_line_id_set_mem_mutex{nullptr};
std::atomic<pal_sem*> g_line_id_get_mem_mutex{nullptr};
std::atomic<pal_sem*> g_line_id_get_mem_sync{nullptr};

std::atomic<pal_msgQ_id> g_line_id_msg_id{0};

// ---- areas

int32_t line_id_cfg_set_share_mem_init(uint8_t oltid) {
  if (oltid >= LINE_ID_INSTANCES) return LINE_ID_ERR_SET_AREA;
  return open_share_area(__func__, SET_AREA_KEY, g_line_id_set_mem[oltid], LINE_ID_ERR_SET_AREA);
}

int32_t line_id_cfg_get_share_mem_init(uint8_t oltid) {
  if (oltid >= LINE_ID_INSTANCES) return LINE_ID_ERR_GET_AREA;
  return open_share_area(__func__, GET_AREA_KEY, g_line_id_get_mem[oltid], LINE_ID_ERR_GET_AREA);
}

int32_t line_id_set_cfg_mem_init(int32_t mode) {
  int32_t ret = LINE_ID_OK;
  for (uint8_t oltid = 0; oltid < LINE_ID_INSTANCES && ret == LINE_ID_OK; ++oltid) {
    ret = mode == LINE_ID_CROSS_PROCESS
              ? line_id_cfg_set_share_mem_init(oltid)
              : open_private_area(__func__, g_private_set_mem[oltid], g_line_id_set_mem[oltid]);
  }
  return ret;
}

int32_t line_id_get_cfg_mem_init(int32_t mode) {
  int32_t ret = LINE_ID_OK;
  for (uint8_t oltid = 0; oltid < LINE_ID_INSTANCES && ret == LINE_ID_OK; ++oltid) {
    ret = mode == LINE_ID_CROSS_PROCESS
              ? line_id_cfg_get_share_mem_init(oltid)
              : open_private_area(__func__, g_private_get_mem[oltid], g_line_id_get_mem[oltid]);
  }
  return ret;
}

int32_t line_id_cfg_mem_init(int32_t mode) {
  if (line_id_get_cfg_mem_init(mode) < 0) return fail(__func__, "line_id_get_cfg_mem_init", LINE_ID_ERR_GET_AREA);
  if (line_id_set_cfg_mem_init(mode) < 0) return fail(__func__, "line_id_set_cfg_mem_init", LINE_ID_ERR_SET_AREA);
  return LINE_ID_OK;
}

line_id_cmd_area* line_id_set_cfg_mem(uint8_t oltid) { return area_of(g_line_id_set_mem, oltid); }

line_id_cmd_area* line_id_get_cfg_mem(uint8_t oltid) { return area_of(g_line_id_get_mem, oltid); }

// ---- semaphores

int32_t line_id_set_mem_mutex_init(int32_t mode) {
  return open_sem(__func__, mode, "set_mem_mutex", 1, g_line_id_set_mem_mutex_tmp, g_line_id_set_mem_mutex);
}

int32_t line_id_get_mem_mutex_init(int32_t mode) {
  return open_sem(__func__, mode, "get_mem_mutex", 1, g_line_id_get_mem_mutex_tmp, g_line_id_get_mem_mutex);
}

int32_t line_id_get_mem_sync_init(int32_t mode) {
  return open_sem(__func__, mode, "get_mem_sync", 0, g_line_id_get_mem_sync_tmp, g_line_id_get_mem_sync);
}

int32_t line_id_sem_init(int32_t mode) {
  if (mode == g_sem_mode) return LINE_ID_OK;
  g_sem_mode = NEVER_OPENED;
  // ODD: the set mutex is reported under the name of the set areas.
  if (line_id_set_mem_mutex_init(mode) < 0) return fail(__func__, "line_id_set_cfg_mem_init", LINE_ID_ERR);
  if (line_id_get_mem_mutex_init(mode) < 0) return fail(__func__, "line_id_get_mem_mutex_init", LINE_ID_ERR);
  if (line_id_get_mem_sync_init(mode) < 0) return fail(__func__, "line_id_get_mem_sync_init", LINE_ID_ERR);
  g_sem_mode = mode;
  return LINE_ID_OK;
}

void line_id_channel_reset() {
  pal_sem_reset(g_line_id_set_mem_mutex, 1);
  pal_sem_reset(g_line_id_get_mem_mutex, 1);
  pal_sem_reset(g_line_id_get_mem_sync, 0);
}

bool line_id_channel_is_open() {
  for (uint8_t oltid = 0; oltid < LINE_ID_INSTANCES; ++oltid) {
    if (line_id_set_cfg_mem(oltid) == LINE_ID_NO_AREA || line_id_get_cfg_mem(oltid) == LINE_ID_NO_AREA) return false;
  }
  return g_sem_mode != NEVER_OPENED && g_line_id_msg_id != 0;
}

int32_t line_id_set_mem_mutex_take() { return take_sem(__func__, g_line_id_set_mem_mutex, LINE_ID_ERR_TAKE_SET); }

int32_t line_id_get_mem_mutex_take() { return take_sem(__func__, g_line_id_get_mem_mutex, LINE_ID_ERR_TAKE_GET); }

int32_t line_id_get_mem_sync_take() { return take_sem(__func__, g_line_id_get_mem_sync, LINE_ID_ERR_TAKE_SYNC); }

int32_t line_id_set_mem_mutex_give() {
  pal_sem_give(g_line_id_set_mem_mutex);
  return LINE_ID_OK;
}

int32_t line_id_get_mem_mutex_give() {
  pal_sem_give(g_line_id_get_mem_mutex);
  return LINE_ID_OK;
}

int32_t line_id_get_mem_sync_give() {
  pal_sem_give(g_line_id_get_mem_sync);
  return LINE_ID_OK;
}

void line_id_get_mem_sync_drain() { pal_sem_take(g_line_id_get_mem_sync, 0); }
