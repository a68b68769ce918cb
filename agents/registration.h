// Fills the protocol registration table from the registration settings.
#pragma once

#include <cstdint>

// Always 0. At start-up, before frames flow.
int32_t line_id_protocol_reg_func();
