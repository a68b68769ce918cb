// The Remote-ID: template choice and sub-option operations.
#include "lineid/remote_id.h"

#include "config/store.h"
#include "core/log.h"
#include "lineid/format.h"
#include "lineid/sub_option.h"

namespace {

constexpr uint8_t KIND_DHCPV6 = LINE_ID_DHCPV6 - 1;

// The instance's template of a packet type.
std::string_view instance_template(const line_id_common_cfg* cfg, uint8_t kind0) {
  if (cfg == nullptr) return {};
  return line_id_template_field(kind0 == KIND_DHCPV6 ? cfg->option37_format : cfg->remote_id_format);
}

uint8_t profile_of(const line_id_inf_info* info) { return info->rid <= LINE_ID_VLAN_PROFILES ? info->rid : 0; }

} // namespace

int32_t line_id_check_vlan_based_remote_fmt(const line_id_inf_info* info, uint8_t) {
  return profile_of(info) != 0 ? 0 : LINE_ID_ERR;
}

std::string_view line_id_get_vlan_based_remote_fmt(const line_id_inf_info* info, uint8_t oltid) {
  const line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  if (cfg == nullptr) return {};
  const uint8_t rid = profile_of(info);
  const std::string_view fmt = line_id_template_field(cfg->vlan_remote_format[rid]);
  LINE_ID_INFO(LOG_GENERAL, "fmt_template[%d]:%d, rmt_fmt_vlan[%d]:%.*s\r\n", rid, cfg->vlan_template[rid], rid,
               static_cast<int>(fmt.size()), fmt.data());
  return fmt;
}

int32_t line_id_print_remote_id(uint8_t oltid, uint8_t* out, uint8_t kind0) {
  if (out == nullptr) return line_id_refuse_null(__func__, __LINE__);
  const int32_t set = oltid * 4 + kind0;
  const int32_t ret =
      line_id_expand_template(set, instance_template(line_id_cfg_of(oltid), kind0), reinterpret_cast<char*>(out));
  LINE_ID_INFO(LOG_GENERAL, "remoteid_format (ret=%d): \r\n", ret);
  return ret;
}

int32_t line_id_print_vlan_based_remote_fmt(uint8_t oltid, uint8_t* out, uint8_t kind0, const line_id_inf_info* info) {
  if (out == nullptr) return line_id_refuse_null(__func__, __LINE__);
  const int32_t set = oltid * 4 + kind0;
  // ODD: DHCPv6 never takes a profile's Remote-ID.
  const std::string_view fmt = kind0 == KIND_DHCPV6 ? instance_template(line_id_cfg_of(oltid), kind0)
                                                    : line_id_get_vlan_based_remote_fmt(info, oltid);
  const int32_t ret = line_id_expand_template(set, fmt, reinterpret_cast<char*>(out));
  LINE_ID_INFO(LOG_GENERAL, "remoteid lineid_set:%d, dest_buf:%.*s#\r\n", set, ret > 0 ? ret : 0,
               reinterpret_cast<const char*>(out));
  LINE_ID_INFO(LOG_GENERAL, "remoteid_format (ret = %d): \r\n", ret);
  return ret;
}

int32_t line_id_print_frame_remote_id(uint8_t oltid, uint8_t* out, const line_id_inf_info* info) {
  const auto kind0 = static_cast<uint8_t>(info->pkt_info_ptr->packet_type - 1);
  if (line_id_check_vlan_based_remote_fmt(info, oltid) == 0) {
    return line_id_print_vlan_based_remote_fmt(oltid, out, kind0, info);
  }
  return line_id_print_remote_id(oltid, out, kind0);
}

int32_t line_id_print_remote_id_untraced(const line_id_text_source& from, uint8_t* out, const line_id_inf_info* info) {
  const auto kind0 = static_cast<uint8_t>(info->pkt_info_ptr->packet_type - 1);
  return line_id_expand_untraced(*from.letters, instance_template(from.cfg, kind0), reinterpret_cast<char*>(out));
}

int32_t line_id_remote_id_modify(uint8_t oltid, const uint8_t* old, uint16_t old_len, uint8_t* out, uint16_t* opt_len,
                                 line_id_inf_info* info) {
  return line_id_remote_id_replace(oltid, old, old_len, out, opt_len, info);
}

int32_t line_id_remote_id_replace(uint8_t oltid, const uint8_t*, uint16_t, uint8_t* out, uint16_t* opt_len,
                                  line_id_inf_info* info) {
  if (out == nullptr || opt_len == nullptr) return line_id_refuse_null(__func__, __LINE__);
  const int32_t len = line_id_print_frame_remote_id(oltid, out + LINE_ID_SUB_OPTION_HEAD, info);
  if (len < 0) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_remote_id_replace failed(%d).\r\n", LINE_ID_ERR);
    return LINE_ID_ERR;
  }
  line_id_close_sub_option(out, LINE_ID_SUB_REMOTE_ID, static_cast<uint32_t>(len), opt_len);
  return LINE_ID_OK;
}

int32_t line_id_remote_id_remove(const uint8_t*, uint16_t, uint8_t*, uint16_t* opt_len, line_id_inf_info*) {
  if (opt_len == nullptr) return line_id_refuse_null(__func__, __LINE__);
  *opt_len = 0;
  LINE_ID_INFO(LOG_GENERAL, "remote id remove.\r");
  return LINE_ID_OK;
}

int32_t line_id_remote_id_none(const uint8_t* old, uint16_t old_len, uint8_t* out, uint16_t* opt_len) {
  LINE_ID_INFO(LOG_GENERAL, "remote id none.\r");
  return line_id_keep_sub_option(__func__, __LINE__, old, old_len, out, opt_len);
}
