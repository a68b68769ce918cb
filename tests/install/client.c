/* A program outside the project: configures the agent of another process, as an integrator's program does. */
#include <line_id.h>

#include <stdio.h>

int main(void) {
  const int32_t running = line_id_is_service_running();
  const int32_t attached = line_id_init_share_resource(NULL);
  const int32_t before = line_id_get_option82_enable(0);
  const int32_t set = line_id_set_option82_enable(0, 1);
  int32_t after = line_id_get_option82_enable(0);
  for (int reports = 0; reports < 500 && after >= 0; ++reports) {
    line_id_show_pkt_statistics();
    after = line_id_get_option82_enable(0);
  }
  printf("running %d, attached %d, before %d, set %d, after %d\n", (int)running, (int)attached, (int)before, (int)set,
         (int)after);
  return 0;
}
