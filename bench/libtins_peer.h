// The same insertions with a general packet library: parse, add, serialise. The texts are given.
#pragma once

#include "bench/bare.h"

uint32_t tins_dhcp4(const uint8_t* frame, uint32_t len, uint8_t* out, const bare_texts& texts);
uint32_t tins_pppoe(const uint8_t* frame, uint32_t len, uint8_t* out, const bare_texts& texts);
uint32_t tins_dhcp6(const uint8_t* frame, uint32_t len, uint8_t* out, const bare_texts& texts);
