// Start-up: configuration data, shared objects, and the calls that bring the agent up in a host or a client.
#include "core/service.h"

#include "config/channel.h"
#include "config/customer_profile.h"
#include "config/policy.h"
#include "core/init_flag.h"
#include "core/log.h"
#include "core/records.h"
#include "core/worker.h"
#include "lineid/hal.h"
#include "packet/pool.h"
#include "platform/pal.h"

#include <cstdio>

namespace {

constexpr uint8_t CUST_MODES = 5;
constexpr uint32_t PACKET_SEM_KIND = 2;
constexpr int32_t CROSS_PROCESS = 1;

// The agent, and only the agent, claims the prefix, before it touches anything that a second agent could be using.
int32_t init_channel_sems(int32_t mode) {
  if (mode == CROSS_PROCESS && pal_service_claim() != 0) return LINE_ID_ERR;
  return line_id_sem_init(mode);
}

// What a former run left: its messages, the units that those name, and semaphores that nobody will give. In this order,
// so that a client that posts meanwhile is either served or finds the semaphores free.
void clean_up_former_run(pal_msgQ_id id) {
  line_id_msg msg = {};
  while (pal_msgQ_receive_wait_priority(id, &msg, static_cast<uint32_t>(sizeof(msg)), 0, 0) > 0) {
  }
  line_id_buf_pool_reclaim();
  line_id_channel_reset();
}

// `shared`: the queue that other processes reach; otherwise it belongs to this process alone.
int32_t init_queue(const uint32_t* key, bool shared, pal_msgQ_id* id) {
  std::printf("Creating Lineid Message Queue :");
  uint32_t key_id = 0;
  if (shared && key != nullptr) key_id = *key;
  if (shared && key == nullptr) {
    key_id = LINE_ID_DEFAULT_QUEUE_KEY;
    // ODD: with the default key the line comes before the queue exists, and once more when it does.
    std::puts("create lineid message queue OK.\r");
  }
  std::printf("key_id :%d", static_cast<int>(key_id));
  *id = g_line_id_msg_id;
  if (pal_msgQ_create_ex(id, key_id, LINE_ID_MSG_DEPTH, sizeof(line_id_msg), 0) != 0) {
    std::puts("Failed to create lineid message queue.\r");
    return LINE_ID_ERR;
  }
  std::puts("create lineid message queue OK.\r");
  return LINE_ID_OK;
}

} // namespace

int32_t line_id_data_init(uint8_t oltid, uint8_t cust_mode, const line_id_ex_cfg_table* ex_cfg_table,
                          const line_id_hal_func_table* hal_func_table) {
  if (cust_mode >= CUST_MODES) {
    LINE_ID_ERROR("cust_mode is err, failed(%d).\r\n", LINE_ID_ERR_CUST_MODE);
    return LINE_ID_ERR_CUST_MODE;
  }
  if (hal_func_table == nullptr) {
    LINE_ID_WARN(LOG_GENERAL, "hal_func_table is null.!\r");
  } else if (line_id_reg_hal_func(cust_mode, hal_func_table) < 0) {
    LINE_ID_ERROR("line_id_reg_hal_func fail(%d).!\r\n", LINE_ID_ERR_HAL_REG);
    return LINE_ID_ERR_HAL_REG;
  }
  if (ex_cfg_table != nullptr && ex_cfg_table->fmt_list == nullptr) {
    LINE_ID_ERROR("ex_cfg_table->fmt_list is NULL, fail(%d).!\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  const int32_t ret = line_id_cfg_data_init(oltid, cust_mode, ex_cfg_table);
  if (ret < 0) {
    LINE_ID_ERROR("line_id_cfg_data_init fail(%d).!\r\n", LINE_ID_ERR_CFG_INIT);
    return LINE_ID_ERR_CFG_INIT;
  }
  line_id_set_data_init_done_cfg(1);
  LINE_ID_INFO(LOG_GENERAL, "line_id_set_data_init_done_cfg success.!\r");
  return ret;
}

int32_t line_id_init_sys_resource(const uint32_t* key) {
  if (pal_sem_create(&g_line_id_pkt_sem, PACKET_SEM_KIND) != 0) {
    LINE_ID_ERROR("Unable to create pkt pool sem ,failed(%d).\r\n", LINE_ID_ERR_SEM_CREATE);
    return LINE_ID_ERR_SEM_CREATE;
  }
  const int32_t mode = line_id_get_cross_process_shared_mem_cfg();
  if (init_channel_sems(mode) < 0) {
    LINE_ID_ERROR("line_id_sem_init-Unable to init cfg mem sem,failed(%d).\r\n", LINE_ID_ERR_SEM_CREATE);
    return LINE_ID_ERR_SEM_CREATE;
  }
  std::printf("Creating PKT Buffer Pool...");
  if (line_id_buf_pool_init(g_line_id_buf_pool_num) != 0) {
    LINE_ID_ERROR("line_id_buf_pool_init,failed(%d).\r\n", LINE_ID_ERR_POOL);
    return LINE_ID_ERR_POOL;
  }
  std::puts("line_id_buf_pool_init OK.\r");
  std::printf("Creating PKT Buffer BLOCK...");
  if (line_id_cfg_mem_init(mode) < 0) {
    LINE_ID_ERROR("line_id_cfg_mem_init,failed(%d).\r\n", LINE_ID_ERR_SHARE_MEM);
    return LINE_ID_ERR_SHARE_MEM;
  }
  std::puts("line_id_cfg_mem_init OK.\r");
  pal_msgQ_id id = 0;
  if (init_queue(key, mode == CROSS_PROCESS, &id) < 0) return LINE_ID_ERR;
  clean_up_former_run(id);
  g_line_id_msg_id = id; // from here on frames are taken in
  return LINE_ID_OK;
}

int32_t line_id_proc_entry(const uint32_t* key) {
  if (line_id_init_sys_resource(key) < 0) {
    pal_service_release();
    LINE_ID_ERROR("line_id_proc_entry fail(%d).!\r\n", LINE_ID_ERR);
    return LINE_ID_ERR;
  }
  std::puts("lineid start .\r");
  const int32_t ret = line_id_start(0, 0, "LINEID", 0);
  pal_service_release();
  if (ret < 0) {
    std::puts("lineid start error.\r");
    LINE_ID_ERROR("line_id_proc_entry failed(%d).\r\n", ret);
  }
  return ret;
}

int32_t line_id_init_share_resource(const uint32_t* key) {
  if (line_id_channel_is_open()) return LINE_ID_OK;
  if (line_id_sem_init(CROSS_PROCESS) < 0) {
    std::puts("Unable to init cfg mem sem.\r");
    LINE_ID_ERROR("line_id_init_share_resource failed(%d).\r\n", LINE_ID_ERR_SHARE_SEM);
    return LINE_ID_ERR_SHARE_SEM;
  }
  if (line_id_cfg_mem_init(CROSS_PROCESS) < 0) {
    std::puts("g_line_id_cfg_pool init failed.\r");
    LINE_ID_ERROR("line_id_init_share_resource failed(%d).\r\n", LINE_ID_ERR_SHARE_MEM);
    return LINE_ID_ERR_SHARE_MEM;
  }
  std::puts("OK.\r");
  pal_msgQ_id id = 0;
  if (init_queue(key, true, &id) < 0) return LINE_ID_ERR_SHARE_QUEUE;
  g_line_id_msg_id = id;
  return LINE_ID_OK;
}
