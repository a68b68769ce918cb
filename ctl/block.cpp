// Fields of the circuit-ID block by their settings' names.
#include "ctl/block.h"

#include "include/line_id.h"

#include <algorithm>
#include <cstring>

namespace {

using block_record = line_id_circuit_id_config;
constexpr uint8_t NAMED_ENABLES = LINE_ID_ENABLE_OPTION82 | LINE_ID_ENABLE_OPTION18 | LINE_ID_ENABLE_OPTION37;

struct block_field {
  const char* name;
  void (*put)(block_record& block, const setting_value& value);
  setting_value (*take)(const block_record& block);
};

template <uint8_t bit> void put_bit(block_record& block, const setting_value& value) {
  const uint32_t others = block.enable & ~uint32_t{bit};
  block.enable = static_cast<uint8_t>(others | (std::get<uint32_t>(value) != 0 ? bit : 0U));
}
template <uint8_t bit> setting_value take_bit(const block_record& block) {
  return (block.enable & bit) != 0 ? uint32_t{1} : uint32_t{0};
}

template <auto member> void put_number(block_record& block, const setting_value& value) {
  using field = std::remove_reference_t<decltype(block.*member)>;
  block.*member = static_cast<field>(std::get<uint32_t>(value));
}
template <auto member> setting_value take_number(const block_record& block) {
  using field = std::make_unsigned_t<std::remove_cvref_t<decltype(block.*member)>>;
  return static_cast<uint32_t>(static_cast<field>(block.*member));
}

template <auto member> void put_text(block_record& block, const setting_value& value) {
  const auto& text = std::get<std::string>(value);
  std::memset(block.*member, 0, sizeof(block.*member));
  std::memcpy(block.*member, text.data(), std::min(text.size(), sizeof(block.*member)));
}
template <auto member> setting_value take_text(const block_record& block) {
  return std::string(block.*member, strnlen(block.*member, sizeof(block.*member)));
}

constexpr block_field FIELDS[] = {
    {"slot", put_number<&block_record::slot>, take_number<&block_record::slot>},
    {"option82", put_bit<LINE_ID_ENABLE_OPTION82>, take_bit<LINE_ID_ENABLE_OPTION82>},
    {"option18", put_bit<LINE_ID_ENABLE_OPTION18>, take_bit<LINE_ID_ENABLE_OPTION18>},
    {"option37", put_bit<LINE_ID_ENABLE_OPTION37>, take_bit<LINE_ID_ENABLE_OPTION37>},
    {"pppoe-plus", put_number<&block_record::pppoe_plus_enable>, take_number<&block_record::pppoe_plus_enable>},
    {"access-node", put_text<&block_record::ani_str>, take_text<&block_record::ani_str>},
    {"rack", put_number<&block_record::rack_no>, take_number<&block_record::rack_no>},
    {"frame", put_number<&block_record::frame_no>, take_number<&block_record::frame_no>},
    {"uplink-type", put_text<&block_record::uplink_type>, take_text<&block_record::uplink_type>},
    {"management-ip", put_number<&block_record::manage_ip>, take_number<&block_record::manage_ip>},
    {"host-name", put_text<&block_record::hostname>, nullptr},
};

} // namespace

std::vector<std::string> block_names() {
  std::vector<std::string> names;
  for (const block_field& field : FIELDS) names.emplace_back(field.name);
  return names;
}

int32_t block_change(uint8_t oltid, const named_values& changes) {
  block_record block = {};
  const int32_t ret = line_id_get_circuit_id_config(oltid, &block);
  if (ret < 0) return ret;
  // What the agent does not fill is whatever the last answer left there.
  block.enable &= NAMED_ENABLES;
  std::memset(block.hostname, 0, sizeof(block.hostname));
  for (const auto& [name, value] : changes) {
    for (const block_field& field : FIELDS) {
      if (name == field.name) field.put(block, value);
    }
  }
  if (oltid == 0) return line_id_set_circuit_id_config(&block);
  return volt_line_id_set_circuit_id_config(oltid, &block);
}

int32_t block_read(uint8_t oltid, named_values& values) {
  block_record block = {};
  const int32_t ret = line_id_get_circuit_id_config(oltid, &block);
  if (ret < 0) return ret;
  for (const block_field& field : FIELDS) {
    if (field.take != nullptr) values.emplace_back(field.name, field.take(block));
  }
  return ret;
}
