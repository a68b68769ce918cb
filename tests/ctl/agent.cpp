// An agent that other processes configure, all instances with the profile of an OLT and no device behind it.
#include "include/line_id.h"

#include <cstdio>

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  for (uint8_t oltid = 0; oltid < LINE_ID_INSTANCES; ++oltid) {
    line_id_fmt_list formats = {};
    line_id_ex_cfg_table table = {};
    table.fmt_list = &formats;
    if (line_id_obtain_cust_cfg_table_content(LINE_ID_MODE_OLT, 0, &table) < 0) return 1;
    table.cross_process_shared_mem = 1;
    if (line_id_data_init(oltid, LINE_ID_MODE_OLT, &table, nullptr) < 0) return 1;
  }
  return line_id_proc_entry(nullptr) < 0 ? 1 : 0;
}
