// The packet property record: the flat form of the line information that hooks see.
#include "core/records.h"

#include "core/log.h"

#include <cstring>

int32_t line_id_get_pkt_propety_by_inf_info(line_id_pkt_property* property, const line_id_inf_info* info) {
  if (property == nullptr || info == nullptr || info->pkt_info_ptr == nullptr) {
    LINE_ID_WARN(LOG_GENERAL, "pkt_propety OR inf_info_ptr is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  const line_id_pkt_info* pkt = info->pkt_info_ptr;
  property->src_port = pkt->src_port;
  std::memcpy(property->client_mac, info->client_mac, sizeof(property->client_mac));
  std::memcpy(property->onu_mac, pkt->onu_mac, sizeof(property->onu_mac));
  property->onu_portid = pkt->onu_portid;
  property->onu_authno = pkt->onu_authno;
  property->onu_ponno = pkt->onu_ponno;
  property->onu_type_id = info->onu.onu_type_id;
  property->onu_gemid = pkt->onu_gemid;
  property->svlan = pkt->svlan;
  property->cvlan = pkt->cvlan;
  property->recv_time = pkt->recv_time;
  property->packet_type = pkt->packet_type;
  property->olt_slot = info->olt_slot;
  property->direct = pkt->direct;
  std::memcpy(property->reserved, pkt->reserved, sizeof(property->reserved));
  return LINE_ID_OK;
}

int32_t line_id_set_inf_info_by_pkt_propety(const line_id_pkt_property* property, line_id_inf_info* info) {
  if (property == nullptr || info == nullptr || info->pkt_info_ptr == nullptr) {
    LINE_ID_WARN(LOG_GENERAL, "mbuf is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  line_id_pkt_info* pkt = info->pkt_info_ptr;
  pkt->src_port = property->src_port;
  std::memcpy(info->client_mac, property->client_mac, sizeof(info->client_mac));
  std::memcpy(pkt->onu_mac, property->onu_mac, sizeof(pkt->onu_mac));
  pkt->onu_portid = property->onu_portid;
  pkt->onu_authno = property->onu_authno;
  pkt->onu_ponno = property->onu_ponno;
  info->onu.onu_type_id = property->onu_type_id;
  pkt->onu_gemid = static_cast<uint16_t>(property->onu_gemid);
  pkt->svlan = property->svlan;
  pkt->cvlan = property->cvlan;
  pkt->recv_time = property->recv_time;
  pkt->packet_type = property->packet_type;
  info->olt_slot = property->olt_slot;
  pkt->direct = property->direct;
  std::memcpy(pkt->reserved, property->reserved, sizeof(pkt->reserved));
  return LINE_ID_OK;
}
