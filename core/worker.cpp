// The worker loop and the end of it.
#include "core/worker.h"

#include "config/channel.h"
#include "config/message_server.h"
#include "config/statistics.h"
#include "core/init_flag.h"
#include "core/log.h"
#include "core/records.h"
#include "packet/pkt_proc.h"
#include "packet/pool.h"
#include "platform/pal.h"

#include <cstdio>
#include <mutex>

namespace {

constexpr int32_t TICK_TIMEOUT = 1000;
constexpr int32_t RECEIVE_FLAGS = -6;

// The running instance. Set by the worker, taken away by whoever stops it; the holder of the pointer holds a reference.
lib_comm_lib* g_line_id_mgr = nullptr;
std::mutex g_line_id_mgr_lock;

lib_comm_lib* take_manager() {
  const std::lock_guard<std::mutex> lock(g_line_id_mgr_lock);
  lib_comm_lib* mgr = g_line_id_mgr;
  g_line_id_mgr = nullptr;
  return mgr;
}

using packet_event = int32_t (*)(lib_comm_task* task);

int32_t schedule_packet(lib_comm_lib* mgr, const line_id_msg& msg, packet_event event) {
  line_id_unit* unit = line_id_buf_pool_take_queued(msg.pointer, msg.kind);
  if (unit == nullptr) {
    LINE_ID_WARN(LOG_GENERAL, "no unit %u is queued for kind %u, ignored.\r\n", msg.pointer, msg.kind);
    return LINE_ID_OK;
  }
  const int32_t ret = lib_comm_thread_add_event(mgr, event, unit, 0);
  if (ret < 0) {
    line_id_inc_drop_pkt_count(unit->pkt_info_ptr->direct, static_cast<int8_t>(unit->pkt_info_ptr->packet_type));
    LINE_ID_WARN(LOG_GENERAL, "lib_comm_thread_add_event failed(%d).\r\n", ret);
    line_id_buf_pool_give_back(unit);
  }
  return ret;
}

// A message that is not carried out still completes its exchange, so that no client waits in vain.
void complete_dropped(const line_id_msg& msg) {
  if (msg.kind == MSG_SET) line_id_set_mem_mutex_give();
  if (msg.kind == MSG_GET) line_id_get_mem_sync_give();
}

int32_t dispatch(lib_comm_lib* mgr, const line_id_msg& msg) {
  packet_event event;
  switch (msg.kind) {
  case MSG_SET: return line_id_set_cfg_msg_proc(msg.oltid);
  case MSG_GET: return line_id_get_cfg_msg_proc(msg.oltid, msg.code);
  case MSG_SHOW: return line_id_show_cfg_msg_proc(msg.oltid, msg.code);
  case MSG_DHCPV4: event = line_id_dhcp4_pkt_proc; break;
  case MSG_DHCPV6: event = line_id_dhcp6_pkt_proc; break;
  case MSG_PPPOE: event = line_id_pppoe_pkt_proc; break;
  default: return LINE_ID_OK;
  }
  return schedule_packet(mgr, msg, event);
}

// Frames that were scheduled and not run when the loop ended go back to the pool.
void give_back_events(lib_comm_lib* mgr) {
  while (void* unit = lib_comm_thread_drop_event(mgr)) {
    line_id_buf_pool_give_back(static_cast<line_id_unit*>(unit));
  }
}

} // namespace

int32_t line_id_msg_func(void* arg, int32_t wait) {
  // A time limit is for other processes, which may be killed before they wake the worker; a stop wakes it.
  if (wait > 0 && pal_msgQ_is_private(g_line_id_msg_id) == 1) wait = -1;
  line_id_msg msg = {};
  const int32_t received =
      pal_msgQ_receive_wait_priority(g_line_id_msg_id, &msg, static_cast<uint32_t>(sizeof(msg)), wait, RECEIVE_FLAGS);
  if (received != static_cast<int32_t>(sizeof(msg))) return LINE_ID_ERR;
  if (line_id_get_data_init_done_cfg() == 0) {
    LINE_ID_WARN(LOG_DHCPV4, "lineid data is not initialized.!\r");
    complete_dropped(msg);
    return LINE_ID_OK;
  }
  return dispatch(static_cast<lib_comm_lib*>(arg), msg);
}

int32_t line_id_start(int32_t, int32_t, const char* name, int32_t) {
  lib_comm_lib* mgr = lib_comm_lib_create(name);
  if (mgr == nullptr) {
    LINE_ID_ERROR("line_id_start failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  mgr->tick_timeout = TICK_TIMEOUT;
  mgr->log_option = 0;
  mgr->log_channel = lib_comm_openzlog(mgr, 0, TICK_TIMEOUT, 1);
  const int32_t ret = lib_comm_lib_start(mgr);
  if (ret < 0) {
    lib_comm_lib_stop(mgr);
    LINE_ID_ERROR("line_id_start failed(%d).\r\n", ret);
    lib_comm_release(mgr);
    return LINE_ID_ERR_START;
  }

  lib_comm_retain(mgr); // one reference for the loop, one for whoever stops it
  {
    const std::lock_guard<std::mutex> lock(g_line_id_mgr_lock);
    g_line_id_mgr = mgr;
  }
  lib_comm_task task = {};
  while (lib_comm_thread_fetch_with_func(mgr, &task, line_id_msg_func, 0) != nullptr) lib_comm_thread_call(&task);
  give_back_events(mgr);
  lib_comm_release(mgr);
  return LINE_ID_OK;
}

int32_t line_id_stop(void) {
  lib_comm_lib* mgr = take_manager();
  if (mgr == nullptr) return LINE_ID_ERR_NULL;
  mgr->stop_flags.fetch_or(1U);
  const int32_t ret = lib_comm_lib_stop(mgr);
  lib_comm_release(mgr);
  line_id_msg nothing = {};
  nothing.kind = MSG_NONE;
  pal_msgQ_send_own(g_line_id_msg_id, &nothing, static_cast<uint32_t>(sizeof(nothing))); // full: nobody sleeps
  return ret;
}
