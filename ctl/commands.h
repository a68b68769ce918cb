// What the commands do, behind the command line. Each throws ctl_failure.
#pragma once

#include "ctl/values.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

void command_set(uint8_t oltid, const std::string& name, const std::string& value);
// No names: all settings.
void command_get(uint8_t oltid, const std::vector<std::string>& names, bool json);
void command_settings();

enum report_kind {
  REPORT_STATISTICS,
  REPORT_STATUS,
  REPORT_DHCP_BINDINGS,
  REPORT_PPPOE_BINDINGS,
  REPORT_WHITELIST,
  REPORT_PROFILES
};
void command_show(uint8_t oltid, report_kind kind);
void command_reset_statistics(uint8_t oltid);

// The bindings of one MAC, or of the ONU { PON number, authorisation number }.
void command_delete_binding(uint8_t oltid, bool pppoe, const std::string& mac, const std::vector<uint16_t>& onu);

void command_profile_add(uint8_t oltid, uint32_t number, uint8_t kind, uint8_t circuit_template,
                         const std::string& text);
void command_profile_delete(uint8_t oltid, uint32_t number, uint8_t kind);

void command_override(uint8_t oltid, const std::string& letter, const std::string& text);
void command_release(uint8_t oltid, const std::string& letter);

// Several values in one command of the agent.
void command_identity(uint8_t oltid, const std::string& access_node, uint16_t rack, uint16_t frame);
void command_remote_id(uint8_t oltid, bool enable, const std::string& mac);
void command_block_get(uint8_t oltid, bool json);
void command_block_set(uint8_t oltid, const std::vector<std::string>& assignments);
void command_format_get(uint8_t oltid, bool json);
// Without a template the stored one stays.
void command_format_set(uint8_t oltid, const std::string& format, const std::optional<std::string>& text);

void command_apply(const std::string& path, bool dry_run, std::optional<uint32_t> key);

void command_template_check(const std::string& given);
void command_template_show(const std::string& given, const std::vector<std::string>& assignments);
