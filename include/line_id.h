/*
 * Line ID agent: the public C interface (C11 and C++).
 *
 * The agent is loaded by the packet process of a passive-optical access device (OLT, or ONU of the SFU, MDU, DSL
 * kind). The host traps subscribers' DHCPv4, DHCPv6 and PPPoE Discovery frames and hands them in; the agent writes the
 * line's identity into them and gives them back through the host's send callback.
 *
 * Order of calls in the host:
 *   1. line_id_data_init            once for each configuration instance, before the worker runs
 *   2. line_id_set_line_id_buf_pool_num   optional
 *   3. line_id_proc_entry           on the thread that becomes the worker; returns after line_id_stop
 *   4. line_id_dhcp_receive / line_id_pppoe_receive   from any number of host threads
 *   5. line_id_stop                 from any thread
 *
 * Threads: the send and log callbacks can be called from host threads (frames that need no work leave during the
 * receive call) and from the worker; all other callbacks run on the thread that calls line_id_data_init or on the
 * worker. Registration calls belong before step 3, unless said otherwise.
 *
 * Conventions: results are 0 (or a positive count) for success, negative for failure (enum line_id_result). All
 * multi-byte fields of records are in host byte order unless said otherwise. Records marked packed have the same octets
 * on every target. Pointers passed to a callback are valid only during the call.
 */
#ifndef LINE_ID_H
#define LINE_ID_H

#include <stdint.h>

#if defined(__GNUC__)
#define LINE_ID_API __attribute__((visibility("default")))
#define LINE_ID_PACKED __attribute__((packed))
#else
#error "line_id.h needs a compiler with GNU attributes"
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------------------------- constants ---- */

#define LINE_ID_VERSION "1.0.0"

#define LINE_ID_INSTANCES 9          /* configuration instances, `oltid` 0 to 8 */
#define LINE_ID_MAX_FRAME_LEN 1534   /* octets: the longest frame the receive calls take */
#define LINE_ID_FORMAT_LEN 256       /* octets of a stored template, NUL-padded, perhaps without terminator */
#define LINE_ID_ANI_LEN 50           /* octets of an access node identifier */
#define LINE_ID_UPLINK_LEN 32        /* octets of an uplink type */
#define LINE_ID_HOSTNAME_LEN 64      /* octets of a host name */
#define LINE_ID_TEXT_SIZE 51         /* octets of a parameter text: 50 characters and a terminator */
#define LINE_ID_WHITE_LIST_TYPES 32  /* ONU types in the white list */
#define LINE_ID_VLAN_PROFILES 64     /* usable VLAN profiles, numbered 1 to 64 */
#define LINE_ID_DEFAULT_QUEUE_KEY 95 /* key of the message queue when the host names none */

/* Direction of a frame. */
#define LINE_ID_UPSTREAM 1   /* from the subscriber */
#define LINE_ID_DOWNSTREAM 2 /* towards the subscriber */

/* Protocol of a frame (packet type), and of a trap rule. */
#define LINE_ID_DHCPV4 1
#define LINE_ID_DHCPV6 2
#define LINE_ID_PPPOE 3

/* Customer modes of line_id_data_init. */
#define LINE_ID_MODE_OLT 1
#define LINE_ID_MODE_SFU 2
#define LINE_ID_MODE_MDU 3
#define LINE_ID_MODE_DSL 4

/* Access technology forms, as get_access_device_tech_form gives them. */
#define LINE_ID_FORM_GP 1
#define LINE_ID_FORM_EP 2
#define LINE_ID_FORM_XE 3
#define LINE_ID_FORM_XG 4
#define LINE_ID_FORM_XGS 6
#define LINE_ID_FORM_NONE 7 /* accepted; the technology text stays empty */

/* User port types of line_id_onu_port_info. */
#define LINE_ID_PORT_ATM 1
#define LINE_ID_PORT_ETH 2

/* Result codes. A start-up step replaces an inner code by its own. */
enum line_id_result {
  LINE_ID_OK = 0,
  LINE_ID_ERR = -1,                    /* a supporting step failed */
  LINE_ID_ERR_NO_HANDLER = -2,         /* a protocol processor or registered interface is absent */
  LINE_ID_ERR_BINDING = -4,            /* binding entry could not be added */
  LINE_ID_ERR_NULL = -9,               /* a required pointer is null */
  LINE_ID_ERR_RANGE = -10,             /* client call: value out of range, nothing sent */
  LINE_ID_ERR_FORMAT_TYPE = -11,       /* client call: line-ID format type out of range */
  LINE_ID_ERR_CUST_MODE = -13,         /* customer mode out of range */
  LINE_ID_ERR_TECH_NORMS = -14,        /* access technology out of range */
  LINE_ID_ERR_HAL_ONU_PORT = -15,      /* HAL table lacks get_onu_port_info_by_logic_port */
  LINE_ID_ERR_HAL_REG = -16,           /* HAL registration failed */
  LINE_ID_ERR_CFG_INIT = -17,          /* configuration data initialisation failed */
  LINE_ID_ERR_SHARE_SEM = -18,         /* client start: semaphores */
  LINE_ID_ERR_SHARE_MEM = -19,         /* start: shared memory */
  LINE_ID_ERR_SHARE_QUEUE = -20,       /* client start: message queue */
  LINE_ID_ERR_SEND_MSG = -21,          /* posting on the message queue failed */
  LINE_ID_ERR_NO_AREA = -22,           /* the command area could not be had */
  LINE_ID_ERR_REPLY_CODE = -23,        /* the reply carries another command code */
  LINE_ID_ERR_REPLY_LEN = -24,         /* the reply carries another length */
  LINE_ID_ERR_SET_MUTEX = -25,         /* client: the set-side mutex could not be taken */
  LINE_ID_ERR_GET_MUTEX = -27,         /* client: the get-side mutex could not be taken */
  LINE_ID_ERR_LEVEL = -31,             /* debug level out of range; format printing; white list too long */
  LINE_ID_ERR_WHITE_LIST = -32,        /* white-list parameter */
  LINE_ID_ERR_REG = -33,               /* registration value out of range */
  LINE_ID_ERR_STD_FORMAT = -34,        /* default standard format type out of range */
  LINE_ID_ERR_UP_POLICY = -35,         /* upstream policy out of range */
  LINE_ID_ERR_STRIP = -36,             /* downstream strip setting out of range */
  LINE_ID_ERR_EXCEPTION_POLICY = -37,  /* packet exception policy out of range */
  LINE_ID_ERR_SHARED_MEM_POLICY = -38, /* cross-process setting out of range */
  LINE_ID_ERR_OPTION = -39,            /* agents: the rebuilt frame grows too long */
  LINE_ID_ERR_LENGTH = -40,            /* packet length invalid */
  LINE_ID_ERR_DIRECT = -41,            /* packet direction invalid */
  LINE_ID_ERR_NOT_INIT = -42,          /* packet before data initialisation */
  LINE_ID_ERR_PPPOE_HEADER = -44,      /* PPPoE header invalid on ingress */
  LINE_ID_ERR_POOL = -45,              /* packet pool: initialisation failed or no unit free */
  LINE_ID_ERR_STEP_OPTION82 = -46,     /* start-up, enables, in step order */
  LINE_ID_ERR_STEP_OPTION18 = -48,
  LINE_ID_ERR_STEP_OPTION37 = -49,
  LINE_ID_ERR_STEP_PPPOE_PLUS = -50,
  LINE_ID_ERR_STEP_CIRCUITID = -51,
  LINE_ID_ERR_STEP_REMOTEID = -52, /* also the line-ID format type step */
  LINE_ID_ERR_STEP_DHCPV4_DEBUG = -53,
  LINE_ID_ERR_STEP_DHCPV6_DEBUG = -54,
  LINE_ID_ERR_STEP_PPPOE_DEBUG = -55,
  LINE_ID_ERR_STEP_PPPOE_SPOOF = -56,
  LINE_ID_ERR_STEP_DHCP_SPOOF = -57,
  LINE_ID_ERR_STEP_DHCP_ACTIVE = -58,
  LINE_ID_ERR_STEP_CIRCUIT_FORMAT = -59,
  LINE_ID_ERR_STEP_REMOTE_FORMAT = -60,
  LINE_ID_ERR_STEP_OPTION37_FORMAT = -61,
  LINE_ID_ERR_STEP_DHCP_REG = -63, /* start-up, policies, in step order down to -77 */
  LINE_ID_ERR_STEP_CROSS_PROCESS = -77,
  LINE_ID_ERR_INIT_PARAM = -78,        /* start-up: parameter table */
  LINE_ID_ERR_INIT_POLICY = -79,       /* start-up: policies */
  LINE_ID_ERR_INIT_ENABLE = -80,       /* start-up: enables and formats */
  LINE_ID_ERR_CUST_TABLE = -81,        /* customer table could not be built */
  LINE_ID_ERR_IP_HEADER = -82,         /* DHCP frame: IP header */
  LINE_ID_ERR_IP_LENGTH = -84,         /* IP or UDP length */
  LINE_ID_ERR_UDP_PORTS = -85,         /* UDP ports are not DHCP's */
  LINE_ID_ERR_PPPOE_VERSION = -86,     /* PPPoE version and type */
  LINE_ID_ERR_PPPOE_CODE = -87,        /* PPPoE code */
  LINE_ID_ERR_PPPOE_LENGTH = -88,      /* PPPoE payload length */
  LINE_ID_ERR_SET_AREA = -89,          /* set-side shared memory */
  LINE_ID_ERR_GET_AREA = -90,          /* get-side shared memory */
  LINE_ID_ERR_MALLOC = -91,            /* memory allocation */
  LINE_ID_ERR_SEM_CREATE = -92,        /* semaphore creation */
  LINE_ID_ERR_SEM_OPEN = -93,          /* named semaphore */
  LINE_ID_ERR_BINDING_SEM = -94,       /* binding-table semaphore could not be taken */
  LINE_ID_ERR_TAKE_SET = -96,          /* set mutex take */
  LINE_ID_ERR_TAKE_GET = -97,          /* get mutex take */
  LINE_ID_ERR_TAKE_SYNC = -98,         /* get sync take */
  LINE_ID_ERR_START = -100,            /* the event thread library did not start */
  LINE_ID_ERR_PPPOE_REPLACE = -102,    /* PPPoE: replacing an empty tag failed */
  LINE_ID_ERR_CIRCUIT_ID = -107,       /* agents: Circuit-ID */
  LINE_ID_ERR_REMOTE_ID = -108,        /* agents: Remote-ID */
  LINE_ID_ERR_SUB_OPTION = -109,       /* agents: sub-option length */
  LINE_ID_ERR_CFG_MEM = -110,          /* message server: area absent */
  LINE_ID_ERR_DATA_LEN = -112,         /* message server: request length; VLAN profile full or missing */
  LINE_ID_ERR_PARAM_WRITE = -113,      /* parameter write refused */
  LINE_ID_ERR_OPTION18 = -114,         /* DHCPv6: Option 18 */
  LINE_ID_ERR_OPTION37 = -115,         /* DHCPv6: Option 37 */
  LINE_ID_ERR_VLAN = -116,             /* VLAN tags */
  LINE_ID_ERR_NOT_RELAY = -117,        /* DHCPv6: message of the wrong kind for its direction */
  LINE_ID_ERR_ROGUE = -118,            /* DHCPv6: rogue downstream message */
  LINE_ID_ERR_OPTION82_REPLACE = -123, /* DHCPv4: replacing an empty Option 82 failed */
  LINE_ID_ERR_HAL_SET_DRV = -128,      /* HAL table lacks a function, one code each */
  LINE_ID_ERR_HAL_SEND = -129,
  LINE_ID_ERR_HAL_ACCESS_TYPE = -130,
  LINE_ID_ERR_HAL_CARD_TYPE = -131,
  LINE_ID_ERR_HAL_OLT_SLOT = -132,
  LINE_ID_ERR_HAL_TECH_FORM = -134,
  LINE_ID_ERR_HAL_ONU_REG = -135,
  LINE_ID_ERR_PARAM = -147,       /* setter: value out of range */
  LINE_ID_ERR_TOO_LONG = -157,    /* a length limit */
  LINE_ID_ERR_DHCPV6 = -159,      /* not a valid DHCPv6 packet */
  LINE_ID_ERR_PARSE = -160,       /* a text does not fit its template */
  LINE_ID_ERR_DELIMITER = -161,   /* template: no delimiter behind a reference */
  LINE_ID_ERR_VLAN_PROFILE = -162 /* VLAN profile add or delete */
};

/* ------------------------------------------------------------------------------------------------ records ---- */

/* What the driver knows of a trapped frame's line. Packed, 27 octets. Owned by the host, read during the receive call.
 */
typedef struct LINE_ID_PACKED line_id_append_info {
  uint16_t svlan;      /*  0: outer VLAN of the line */
  uint16_t cvlan;      /*  2: inner VLAN of the line */
  uint16_t onu_ponno;  /*  4: PON port number */
  uint16_t onu_portid; /*  6: ONU user port */
  uint16_t onu_gemid;  /*  8: GEM port or LLID */
  uint16_t onu_authno; /* 10: ONU authorisation number */
  uint8_t onu_mac[6];  /* 12: ONU MAC address */
  uint8_t ext[9];      /* 18: extension octets, see LINE_ID_EXT_* */
} line_id_append_info;

/* Meaning of the extension octets, and of the first reserved octets of the property record. For DHCPv6 frames the agent
 * takes LINE_ID_EXT_OLTID and LINE_ID_EXT_LINE_ID_SWITCH only. */
#define LINE_ID_EXT_PROFILE_FLAG 0    /* traced only */
#define LINE_ID_EXT_CID 1             /* VLAN profile of the Circuit-ID, 0 none; above 64 counts as 0 */
#define LINE_ID_EXT_RID 2             /* VLAN profile of the Remote-ID, 0 none; above 64 counts as 0 */
#define LINE_ID_EXT_OLTID 3           /* configuration instance, 0 to 8; a frame with another is passed through */
#define LINE_ID_EXT_CIRCUIT_BY_VLAN 4 /* 1: circuit-id based on VLAN; the agents then take the identity out */
#define LINE_ID_EXT_LINE_ID_SWITCH 6  /* 0: the ONU inserts the line identity itself, upstream frames pass unchanged */
/* octets 5, 7 and 8 are free */

/* The flat form of a frame's line information, shown to the host's hooks. Packed, 71 octets. */
typedef struct LINE_ID_PACKED line_id_pkt_property {
  uint32_t src_port;     /*  0: host port */
  uint8_t client_mac[6]; /*  4: source MAC of the frame */
  uint8_t onu_mac[6];    /* 10 */
  uint16_t onu_portid;   /* 16 */
  uint16_t onu_authno;   /* 18 */
  uint16_t onu_ponno;    /* 20 */
  uint16_t onu_type_id;  /* 22: the property word */
  uint32_t onu_gemid;    /* 24: written back as its low 16 bits */
  uint16_t svlan;        /* 28 */
  uint16_t cvlan;        /* 30 */
  uint32_t recv_time;    /* 32: ticks */
  uint8_t packet_type;   /* 36: LINE_ID_DHCPV4, LINE_ID_DHCPV6 or LINE_ID_PPPOE */
  uint8_t olt_slot;      /* 37: the property octet */
  uint8_t direct;        /* 38: LINE_ID_UPSTREAM or LINE_ID_DOWNSTREAM */
  uint8_t reserved[32];  /* 39: first nine as LINE_ID_EXT_* */
} line_id_pkt_property;

/* A MAC-spoofing alarm. Packed, 13 octets. The place is that of the offending frame. */
typedef struct LINE_ID_PACKED line_id_alarm {
  uint16_t onu_ponno; /*  0 */
  uint16_t onu_no;    /*  2 */
  uint16_t cvlan;     /*  4 */
  uint8_t kind;       /*  6: 0 spoofing detected, 1 binding removed by a PADT */
  uint8_t mac[6];     /*  7: source MAC of the frame */
} line_id_alarm;

/* Registration facts of an ONU; in and out. Natural alignment. Texts hold up to 50 characters and a terminator. */
typedef struct line_id_onu_reg_info {
  uint16_t onu_auth;                  /* in, out: authorisation number */
  uint16_t onu_ponno;                 /* in, out: PON port number */
  char onu_id[LINE_ID_TEXT_SIZE];     /* in, out: ONU identification, letter m */
  uint16_t onu_rpc_ponno;             /* out: PON port as the ONU's registration gives it, letter p */
  uint8_t onu_losn_valid_or_invalid;  /* out: 1 when the ONU's logical identity is valid */
  uint16_t onu_type_id;               /* out: ONU type, for the white list */
  char onu_text_n[LINE_ID_TEXT_SIZE]; /* out: letter n */
  char onu_text_c[LINE_ID_TEXT_SIZE]; /* out: letter C */
} line_id_onu_reg_info;

/* Facts of an ONU's user port. */
typedef struct line_id_onu_port_info {
  uint8_t port_type; /* LINE_ID_PORT_ATM or LINE_ID_PORT_ETH */
  uint8_t circuit_x; /* first circuit number of an ATM port, letter X */
  uint8_t circuit_y; /* second circuit number of an ATM port, letter x */
  uint8_t number[2]; /* big-endian number that letter x finally carries */
} line_id_onu_port_info;

/* The host's callbacks. Each returns 0 on success; records and buffers are zeroed before the call, and what comes back
 * is used only on success. A slot may be null where the device kind does not require it (line_id_reg_hal_func). */
typedef struct line_id_hal_func_table {
  /* Switch the driver's trapping of a protocol (LINE_ID_DHCPV4, ...) on (1) or off (0). */
  int (*set_drv_enable)(uint8_t oltid, uint8_t protocol, uint8_t enable);
  /* Send a frame of `len` octets, starting at the destination MAC, towards `direct`. `port` is the low 16 bits of the
   * receive call's src_port. Called on host threads and on the worker. */
  int (*send_eth_frame)(uint8_t oltid, uint8_t direct, uint16_t port, const uint8_t* frame, uint32_t len);
  /* A MAC-spoofing alarm. */
  int (*mac_spoof_alarm)(const line_id_alarm* alarm);
  /* A log line: text, its full length (which may exceed the 255 characters present), and the text again. */
  int (*log_output)(const char* text, int32_t len, const char* text_again);
  /* Text names; `size` is 51, the agent terminates the text. Letters B and L. */
  int (*get_access_typename)(char* buf, uint32_t size);
  int (*get_card_typename)(char* buf, uint32_t size);
  /* OLT card slot, letter S; a slot of 0 makes every frame fail. */
  int (*get_olt_card_slot_info)(uint16_t* slot);
  /* ONU slot and sub-slot, letters T and M; a 0 in either makes every frame fail. */
  int (*get_onu_card_slot_info)(uint16_t* slot, uint16_t* sub_slot);
  /* Access technology of a line, LINE_ID_FORM_*; letter F. */
  int (*get_access_device_tech_form)(uint16_t onu_ponno, uint16_t onu_authno, uint8_t* form);
  int (*get_onu_reg_info_by_optional_elem)(line_id_onu_reg_info* info);
  int (*get_onu_port_info_by_logic_port)(uint16_t onu_portid, line_id_onu_port_info* info);
} line_id_hal_func_table;

/* Start-up texts: three NUL-padded templates, 768 octets. */
typedef struct line_id_fmt_list {
  char circuit_id[LINE_ID_FORMAT_LEN]; /*   0: custom Circuit-ID */
  char remote_id[LINE_ID_FORMAT_LEN];  /* 256: Remote-ID of DHCPv4 and PPPoE */
  char option37[LINE_ID_FORMAT_LEN];   /* 512: Remote-ID of DHCPv6 */
} line_id_fmt_list;

/* Start-up configuration of one instance. Packed, 36 octets with 32-bit pointers, 40 with 64-bit ones. */
typedef struct LINE_ID_PACKED line_id_ex_cfg_table {
  uint8_t dhcp_reg;                   /*  0: 1 register the protocol's agent, 2 do not */
  uint8_t dhcpv6_reg;                 /*  1 */
  uint8_t pppoe_reg;                  /*  2 */
  uint8_t dhcp_spoof_reg;             /*  3: 1 register the spoofing checks, 2 do not */
  uint8_t pppoe_spoof_reg;            /*  4 */
  uint8_t option82_enable;            /*  5: enables: 0 off, 1 on */
  uint8_t option18_enable;            /*  6 */
  uint8_t option37_enable;            /*  7 */
  uint8_t pppoe_plus_enable;          /*  8 */
  uint8_t circuitid_enable;           /*  9 */
  uint8_t remoteid_enable;            /* 10 */
  uint8_t dhcpv4_debug;               /* 11 */
  uint8_t dhcpv6_debug;               /* 12 */
  uint8_t pppoe_plus_debug;           /* 13 */
  uint8_t pppoe_anti_spoofing_enable; /* 14 */
  uint8_t dhcp_anti_spoofing_enable;  /* 15 */
  uint8_t dhcp_anti_spoofing_active;  /* 16: 1 drop, 0 alarm only */
  line_id_fmt_list* fmt_list;         /* 17: owned by the caller */
  uint8_t line_id_format_type;        /* +0: 0 custom, 1 CTC, 2 CNC */
  uint8_t def_std_fmt_type;           /* +1: 0, 1 or 2: which template of the CTC and CNC families */
  uint8_t dhcp_circuitid_up_policy;   /* +2: 0 by operation, 1 always build anew, 2 keep */
  uint8_t dhcp_remoteid_up_policy;    /* +3 */
  uint8_t pppoe_circuitid_up_policy;  /* +4 */
  uint8_t pppoe_remoteid_up_policy;   /* +5 */
  uint8_t dhcp_tag_dn_strip;          /* +6: 0 or 1 */
  uint8_t pppoe_tag_dn_strip;         /* +7: 0 keep, 1 take the tag out of PADO and PADS */
  uint8_t dhcpv6_tag_dn_strip;        /* +8: 1 unwrap once, 2 twice */
  uint8_t pkt_exception_policy;       /* +9: 0 by result, 1 always pass unchanged, 2 always drop */
  uint8_t cross_process_shared_mem;   /* +10: 1: other processes configure this agent */
  uint8_t reserved[4];                /* +11: zero */
} line_id_ex_cfg_table;

/* ONU types whose frames are passed transparently. Packed, 72 octets. */
typedef struct LINE_ID_PACKED line_id_white_list {
  uint8_t num;                                 /*  0: valid entries, at most 32 */
  uint16_t onu_type[LINE_ID_WHITE_LIST_TYPES]; /*  1 */
  uint8_t reserved[4];                         /* 65 */
  uint8_t trans_policy;                        /* 69: 0 or 1 */
  uint8_t dhcp_enable;                         /* 70: 0 or 1 */
  uint8_t pppoe_enable;                        /* 71: 0 or 1 */
} line_id_white_list;

/* Identity of the device and the enables of an instance, as one block. Packed, 157 octets. Texts are NUL-padded and may
 * fill their field. */
typedef struct LINE_ID_PACKED line_id_circuit_id_config {
  uint8_t slot;                         /*  0 */
  uint8_t enable;                       /*  1: LINE_ID_ENABLE_*, other bits are not used */
  uint8_t pppoe_plus_enable;            /*  2: 0 off, else on */
  char ani_str[LINE_ID_ANI_LEN];        /*  3: access node identifier */
  int16_t rack_no;                      /* 53 */
  int16_t frame_no;                     /* 55 */
  char uplink_type[LINE_ID_UPLINK_LEN]; /* 57 */
  uint32_t manage_ip;                   /* 89: IPv4 address in host order */
  char hostname[LINE_ID_HOSTNAME_LEN];  /* 93: not filled when the block is read */
} line_id_circuit_id_config;

#define LINE_ID_ENABLE_OPTION82 1
#define LINE_ID_ENABLE_OPTION18 2
#define LINE_ID_ENABLE_OPTION37 4

/* Circuit-ID format of an instance. Packed, 293 octets. */
typedef struct LINE_ID_PACKED line_id_circuit_id_format_mode {
  uint8_t line_id_format_type;            /*   0: 0 custom, 1 CTC, 2 CNC */
  char custom_format[LINE_ID_FORMAT_LEN]; /* 1: NUL-padded template */
  uint8_t reserved[36];                   /* 257: carried, not used */
} line_id_circuit_id_format_mode;

/* ------------------------------------------------------------------------------------------------- start-up ---- */

/*
 * Load the configuration of instance `oltid` (0 to 8) and register the host's callbacks.
 *   cust_mode        0 to 4 (LINE_ID_MODE_*)
 *   ex_cfg_table     the instance's settings, or null: the built-in profile of cust_mode with technology 0
 *   hal_func_table   copied; null registers no callbacks (the frames then go nowhere)
 * Result: 0; -13 cust_mode, -16 callbacks refused, -9 no format list, -17 a setting refused (the cause is printed).
 * Call it once for each instance, all before line_id_proc_entry. Calling it again re-reads the settings of the instance
 * and keeps what was learnt.
 */
LINE_ID_API int32_t line_id_data_init(uint8_t oltid, uint8_t cust_mode, const line_id_ex_cfg_table* ex_cfg_table,
                                      const line_id_hal_func_table* hal_func_table);

/* Number of frames that may be under way, 1000 unless set before line_id_proc_entry. Returns 0. */
LINE_ID_API int32_t line_id_set_line_id_buf_pool_num(uint32_t count);

/*
 * Create the pool, the channel and the message queue, and turn the calling thread into the agent's worker. `key` names
 * the message queue for other processes (null: 95); it counts only when the cross-process setting is 1.
 * Returns 0 after line_id_stop, a negative code when the agent could not start. May be called again after a stop.
 */
LINE_ID_API int32_t line_id_proc_entry(const uint32_t* key);

/* End the worker, from any thread; takes effect within 100 ms on an idle worker. 0, or -9 when no worker runs. */
LINE_ID_API int32_t line_id_stop(void);

/*
 * Client processes: attach to the agent's semaphores, areas and queue, `key` as at line_id_proc_entry. In the process
 * that already holds them it changes nothing. Result: 0, -18 semaphores, -19 areas, -20 queue.
 */
LINE_ID_API int32_t line_id_init_share_resource(const uint32_t* key);

/* 1 when an agent is alive on this prefix of shared objects (cross-process mode), else 0; errno is then EACCES when the
 * objects belong to another user. */
LINE_ID_API int32_t line_id_is_service_running(void);

/* ---------------------------------------------------------------------------------------------------- frames ---- */

/*
 * Hand in one trapped frame, from any host thread. The frame and the record stay the caller's and are read during the
 * call only.
 *   frame        whole Ethernet frame from the destination MAC, 0 to 4 VLAN tags (0x8100 or 0x88A8)
 *   len          1 to 1534 octets
 *   src_port     where the frame came from; its low 16 bits come back as the port of the send callback
 *   direct       LINE_ID_UPSTREAM or LINE_ID_DOWNSTREAM
 *   append_info  the line's facts
 * Result: 0 queued for the worker; for a frame that needs no work, the send callback's own result (it ran during the
 * call); negative: refused, nothing will be sent: -9 null, -40 length, -41 direction, -42 not initialised, -116 VLAN
 * tags, -1 / -44 header, -45 no unit free, -21 queue full.
 * A frame that was queued ends in exactly one call of the packet hook, followed by at most one call of the send
 * callback.
 */
LINE_ID_API int32_t line_id_dhcp_receive(const uint8_t* frame, uint32_t len, uint32_t src_port, uint8_t direct,
                                         const line_id_append_info* append_info);
LINE_ID_API int32_t line_id_pppoe_receive(const uint8_t* frame, uint32_t len, uint32_t src_port, uint8_t direct,
                                          const line_id_append_info* append_info);

/* ----------------------------------------------------------------------------------------------------- hooks ---- */

/* Writes one letter's text for the frame under way; text up to its terminator, at most 50 characters. Flag 1: the
 * letter is set; 0: it has a text but counts as not set. Always 0. */
typedef int (*line_id_param_write_func)(int letter, const char* text, int length, int flag);

/* Sees every frame that the worker has processed, before it is sent or dropped; may observe only. The three words are
 * 0. Runs on the worker. */
typedef int (*line_id_custom_pkt_func)(uint8_t direct, uint32_t, uint32_t, uint32_t, line_id_pkt_property* property);

/* Supplies or changes letters: mode 1 at start-up (the record is zero), mode 2 for each frame. What it changes in the
 * record holds for the rest of that frame. 0, or non-zero to fail the frame. Runs on the worker (mode 1: on the thread
 * that calls line_id_data_init). */
typedef int (*line_id_param_custom_func)(uint8_t mode, line_id_param_write_func write, line_id_pkt_property* property);

/* Install the packet hook; may be called at any time. 0, or -9 for null. */
LINE_ID_API int32_t line_id_reg_custom_pkt_proc_if(line_id_custom_pkt_func hook);

/* Install the parameter hook (null takes it out); may be called at any time. Always 0. */
LINE_ID_API int32_t line_id_reg_param_custom_if(line_id_param_custom_func hook);

/* Set the ONU-type white list, its policy and its enables, before frames flow. 0; -9 null, -32 policy, -147 an enable,
 * -31 more than 32 types. */
LINE_ID_API int32_t line_id_init_def_white_list_func(const line_id_white_list* list);

/*
 * Register the host's callbacks for a device kind (0 to 4: the customer mode). Slots required: kind 0 none; 1
 * set_drv_enable, send_eth_frame, get_access_typename, get_card_typename, get_olt_card_slot_info,
 * get_access_device_tech_form, get_onu_reg_info_by_optional_elem; 2 and 3 the first two and the last two of these; 4
 * these four and get_onu_port_info_by_logic_port. Result: 0; -9 null table; -1 kind; -128 to -135 or -15 the missing
 * slot. line_id_data_init calls it.
 */
LINE_ID_API int32_t line_id_reg_hal_func(uint8_t device_kind, const line_id_hal_func_table* table);

/*
 * Fill `ex_cfg_table` with the built-in profile of a mode (1 to 4) and technology (0 to 4), so that a host can change
 * entries and pass it to line_id_data_init. `ex_cfg_table->fmt_list` must point at the caller's list, which is filled
 * too. Result: 0; -13 mode, -14 technology, -9 null, -91 memory; the table is untouched on failure.
 */
LINE_ID_API int32_t line_id_obtain_cust_cfg_table_content(uint8_t cust_mode, uint8_t tech_norms,
                                                          line_id_ex_cfg_table* ex_cfg_table);

/* --------------------------------------------------------------------------------------- configuration calls ---- */

/*
 * These configure and query the agent, from any thread of any process: another process first calls
 * line_id_init_share_resource; the host's own process may call them while line_id_proc_entry runs. None belongs on the
 * worker (that is, in a callback that the worker runs): it would wait for itself.
 *
 * `oltid` is the configuration instance, 0 to 8; another gives -22. Settings "of the whole agent" take it too and
 * ignore it. Texts are octets with a length and need no terminator. Nothing is stored for good: after a start the agent
 * has the host's settings again.
 *
 * Set, delete, override and reset calls return once the command is queued; the worker carries it out later, in order,
 * and does not report back: read the setting to see what became of it. They wait up to 600 ticks for the commands
 * before them. Result: 0; -25 the wait ran out, -22 no such instance, -21 the agent's queue is full or absent; and what
 * a group says of its arguments, in which case nothing was sent.
 *
 * Get calls wait for the answer, up to 600 ticks twice. Those that fill a buffer return 0 and leave the buffer alone on
 * failure. Result below 0: -27 another get holds the channel, -21 as above, -22 no such instance, -23 or -24 no answer
 * in time (the area still held another one), -9 null. The others return the value itself, with these codes in the same
 * result: a stored value of the same number cannot be told from a failure.
 *
 * Show calls have the agent print a report on its own standard output: 0 queued, -21.
 *
 * Each failure is also printed: the call's name and " failed(<code>).".
 */

/* Switches of an instance: 0 off, 1 on; -10 for another value. Option 82, Option 18 and PPPoE+ also switch the driver's
 * trapping at once. The gets return 0 or 1. */
LINE_ID_API int32_t line_id_set_option82_enable(uint8_t oltid, uint8_t enable);        /* DHCPv4 Option 82 */
LINE_ID_API int32_t line_id_set_option18_enable(uint8_t oltid, uint8_t enable);        /* DHCPv6 Interface-ID */
LINE_ID_API int32_t line_id_set_option37_enable(uint8_t oltid, uint8_t enable);        /* DHCPv6 Remote-ID */
LINE_ID_API int32_t line_id_set_dhcpv6_enable(uint8_t oltid, uint8_t enable);          /* Options 37 and 18 together */
LINE_ID_API int32_t line_id_set_pppoe_plus_enable(uint8_t oltid, uint8_t enable);      /* the PPPoE vendor tag */
LINE_ID_API int32_t line_id_set_remote_id_enable(uint8_t oltid, uint8_t enable);       /* Remote-ID in Option 82 */
LINE_ID_API int32_t line_id_set_remoteid_trans_enable(uint8_t oltid, uint8_t enable);  /* stored, not used */
LINE_ID_API int32_t line_id_set_option82_transparent(uint8_t oltid, uint8_t enable);   /* 1: DHCPv4 passes as it is */
LINE_ID_API int32_t line_id_set_pppoe_plus_transparent(uint8_t oltid, uint8_t enable); /* 1: PPPoE passes as it is */
LINE_ID_API int32_t line_id_set_pppoe_anti_spoofing_enable(uint8_t oltid, uint8_t enable); /* check PPPoE sources */
LINE_ID_API int32_t line_id_set_dhcp_anti_spoofing_enable(uint8_t oltid, uint8_t enable);  /* check DHCP sources */
LINE_ID_API int32_t line_id_set_dhcp_anti_spoofing_active(uint8_t oltid, uint8_t enable);  /* 1: drop, 0: alarm only */

LINE_ID_API int32_t line_id_get_option82_enable(uint8_t oltid);
LINE_ID_API int32_t line_id_get_option18_enable(uint8_t oltid);
LINE_ID_API int32_t line_id_get_option37_enable(uint8_t oltid);
LINE_ID_API int32_t line_id_get_pppoe_plus_enable(uint8_t oltid);
LINE_ID_API int32_t line_id_get_remote_id_enable(uint8_t oltid);
LINE_ID_API int32_t line_id_get_option82_transparent(uint8_t oltid);
LINE_ID_API int32_t line_id_get_pppoe_plus_transparent(uint8_t oltid);
LINE_ID_API int32_t line_id_get_pppoe_anti_spoofing_enable(uint8_t oltid);
LINE_ID_API int32_t line_id_get_dhcp_anti_spoofing_enable(uint8_t oltid);
LINE_ID_API int32_t line_id_get_dhcp_anti_spoofing_active(uint8_t oltid);

/* Switch of the whole agent: 0 or 1; -10. Traced only. */
LINE_ID_API int32_t line_id_set_gemport_enable(uint8_t oltid, uint8_t enable);

/* Which Circuit-ID format applies: 0 the custom template, 1 CTC, 2 CNC; -11 for another value. */
LINE_ID_API int32_t line_id_set_line_id_format_type(uint8_t oltid, uint8_t type);
LINE_ID_API int32_t line_id_get_line_id_format_type(uint8_t oltid);

/* Templates of an instance. Set: at most 256 octets, stored as they are (line_id_check_format checks); -1 null or too
 * long. Get: fills 256 octets, NUL-padded, perhaps without terminator. */
LINE_ID_API int32_t line_id_set_circuit_id_custom_format(uint8_t oltid, const char* text, uint32_t len);
LINE_ID_API int32_t line_id_set_remote_id_format(uint8_t oltid, const char* text, uint32_t len); /* DHCPv4, PPPoE */
LINE_ID_API int32_t line_id_set_option37_format(uint8_t oltid, const char* text, uint32_t len);  /* DHCPv6 Remote-ID */
LINE_ID_API int32_t line_id_get_circuit_id_custom_format(uint8_t oltid, char* buf);
LINE_ID_API int32_t line_id_get_remote_id_format(uint8_t oltid, char* buf);
LINE_ID_API int32_t line_id_get_option37_format(uint8_t oltid, char* buf);

/* Identity and enables of an instance as one block; a driver's trapping is switched off only when no instance needs it
 * any more. The first set call always configures instance 0. -9 null. The get leaves the host name of the block and the
 * unnamed enable bits undefined. */
LINE_ID_API int32_t line_id_set_circuit_id_config(const line_id_circuit_id_config* block);
LINE_ID_API int32_t volt_line_id_set_circuit_id_config(uint8_t oltid, const line_id_circuit_id_config* block);
LINE_ID_API int32_t line_id_get_circuit_id_config(uint8_t oltid, line_id_circuit_id_config* block);

/* Format type (not checked) and custom template of an instance as one block. The first set call always configures
 * instance 0. -9 null. The get leaves the reserved octets undefined. */
LINE_ID_API int32_t line_id_set_circuit_id_format_mode(const line_id_circuit_id_format_mode* block);
LINE_ID_API int32_t volt_line_id_set_circuit_id_format_mode(uint8_t oltid, const line_id_circuit_id_format_mode* block);
LINE_ID_API int32_t line_id_get_circuit_id_format_mode(uint8_t oltid, line_id_circuit_id_format_mode* block);

/* Identity of the device, for an instance. Texts: -1 null or too long. The gets fill 50 and 32 octets, NUL-padded,
 * perhaps without terminator; numbers come back sign-extended from 16 bits. */
LINE_ID_API int32_t line_id_set_ani_str(uint8_t oltid, const char* text,
                                        uint32_t len);                   /* letter a, at most 50 octets */
LINE_ID_API int32_t line_id_set_rack_no(uint8_t oltid, uint16_t rack);   /* letter r */
LINE_ID_API int32_t line_id_set_frame_no(uint8_t oltid, uint16_t frame); /* letter f */
LINE_ID_API int32_t line_id_set_ani_param(uint8_t oltid, const char* text, uint32_t len, uint16_t rack,
                                          uint16_t frame); /* the three in one command */
LINE_ID_API int32_t line_id_set_uplink_type(uint8_t oltid, const char* text, uint32_t len); /* at most 32 octets */
LINE_ID_API int32_t line_id_set_manage_ip(uint8_t oltid, uint32_t address); /* IPv4 management address, host order */
LINE_ID_API int32_t line_id_get_ani_str(uint8_t oltid, char* buf);
LINE_ID_API int32_t line_id_get_rack_no(uint8_t oltid);
LINE_ID_API int32_t line_id_get_frame_no(uint8_t oltid);
LINE_ID_API int32_t line_id_get_uplink_type(uint8_t oltid, char* buf);
LINE_ID_API int32_t line_id_get_manage_ip(uint8_t oltid, uint32_t* address);

/* MAC address of the core card, for the Remote-ID of an instance, alone or with the Remote-ID switch. -1: null, a
 * length other than 6, enable above 1. */
LINE_ID_API int32_t line_id_set_remoteid_core_cardinnermac(uint8_t oltid, const uint8_t* mac, uint32_t len);
LINE_ID_API int32_t line_id_set_remote_id_enable_and_params(uint8_t oltid, uint8_t enable, const uint8_t* mac,
                                                            uint32_t len);

/* Pin a letter of an instance to a text of at most 50 octets, whatever the frames say, and release it again (for all
 * instances). -1 null or too long. */
LINE_ID_API int32_t line_id_override_param(uint8_t oltid, uint8_t letter, const char* text, uint32_t len);
LINE_ID_API int32_t line_id_unoverride_param(uint8_t oltid, uint8_t letter);

/* Numbered template profiles of an instance, for frames that the host assigns to one (LINE_ID_EXT_CID,
 * LINE_ID_EXT_RID). type           0 Circuit-ID, 1 Remote-ID prof_id        1 to 64 cirt_template  Circuit-ID only: 0
 * `text` is the template, 1 the CTC templates, 2 the CNC templates text           1 to 256 octets, never empty; -1 null
 * or longer A deleted profile gives its frames an empty text. */
LINE_ID_API int32_t lineid_vlan_profile_cfg_add(uint8_t oltid, uint8_t type, uint32_t prof_id, uint32_t cirt_template,
                                                const char* text, uint32_t len);
LINE_ID_API int32_t lineid_vlan_profile_cfg_del(uint8_t oltid, uint8_t type, uint32_t prof_id);
LINE_ID_API int32_t lineid_vlan_profile_cfg_show(uint8_t oltid);

/* DHCPv6, of the whole agent. Level of Option 18: 1 flattens a received Relay-Forward and unwraps once, 0 wraps it
 * again and unwraps twice; -10. The unwrapping alone: 1 once, 2 twice; -10. */
LINE_ID_API int32_t line_id_set_dhcpv6_option18(uint8_t oltid, uint8_t level);
LINE_ID_API int32_t line_id_set_dhcpv6_option18_relay_strip(uint8_t oltid, uint8_t times);

/* How often a MAC must have been seen behind its ONU before the same MAC behind another counts as spoofed; until then
 * it moves. Any value; that of instance 0 applies. The gets return a failure's code as a number of 32 bits: compare
 * `(int32_t)result` with the codes. */
LINE_ID_API int32_t line_id_set_dhcp_valid_binding_count(uint8_t oltid, uint32_t count);
LINE_ID_API int32_t line_id_set_pppoe_valid_binding_count(uint8_t oltid, uint32_t count);
LINE_ID_API uint32_t line_id_get_dhcp_valid_binding_count(uint8_t oltid);
LINE_ID_API uint32_t line_id_get_pppoe_valid_binding_count(uint8_t oltid);

/* Forget bindings: of one MAC (-1 null or a length other than 6), or of all MACs behind an ONU, named by PON number and
 * ONU authorisation number. */
LINE_ID_API int32_t line_id_del_dhcp_anti_spoofing_entry_by_mac(uint8_t oltid, const uint8_t* mac, uint32_t len);
LINE_ID_API int32_t line_id_del_pppoe_anti_spoofing_entry_by_mac(uint8_t oltid, const uint8_t* mac, uint32_t len);
LINE_ID_API int32_t line_id_del_dhcp_anti_spoofing_entry_by_onu(uint8_t oltid, uint16_t onu_ponno, uint16_t onu_authno);
LINE_ID_API int32_t line_id_del_pppoe_anti_spoofing_entry_by_onu(uint8_t oltid, uint16_t onu_ponno,
                                                                 uint16_t onu_authno);

/* ONU types whose frames pass unchanged, of the whole agent. Carries count and types only: policy and enables stay as
 * the host set them. -9 null, -31 more than 32 types. */
LINE_ID_API int32_t line_id_set_trans_white_list(uint8_t oltid, const line_id_white_list* list);

/* Zero all counters, of the whole agent. */
LINE_ID_API int32_t line_id_reset_statistics(uint8_t oltid);

/* Traces on the agent's standard output, of the whole agent: each category 0 off, 1 on; level 0 errors only, 1 also
 * warnings, 2 also information; -10 for another value. A trace needs its category and the level. */
LINE_ID_API int32_t line_id_set_lineid_debug(uint8_t oltid, uint8_t enable);     /* general */
LINE_ID_API int32_t line_id_set_cfg_debug(uint8_t oltid, uint8_t enable);        /* configuration commands */
LINE_ID_API int32_t line_id_set_dhcpv4_debug(uint8_t oltid, uint8_t enable);     /* DHCPv4 frames */
LINE_ID_API int32_t line_id_set_dhcpv6_debug(uint8_t oltid, uint8_t enable);     /* DHCPv6 frames */
LINE_ID_API int32_t line_id_set_pppoe_plus_debug(uint8_t oltid, uint8_t enable); /* PPPoE frames */
LINE_ID_API int32_t line_id_set_device_debug(uint8_t oltid, uint8_t enable);     /* callbacks */
LINE_ID_API int32_t line_id_set_comm_tx_debug(uint8_t oltid, uint8_t enable);    /* reserved */
LINE_ID_API int32_t line_id_set_comm_rx_debug(uint8_t oltid, uint8_t enable);    /* reserved */
LINE_ID_API int32_t line_id_set_all_debug(uint8_t oltid, uint8_t enable);        /* all of these */
LINE_ID_API int32_t line_id_set_level_debug(uint8_t oltid, uint8_t level);

/* Reports. */
LINE_ID_API int32_t line_id_show_pppoe_whitelist(uint8_t oltid);
LINE_ID_API int32_t line_id_show_pkt_statistics(void);
LINE_ID_API int32_t line_id_show_lineid_status(uint8_t oltid);
LINE_ID_API int32_t line_id_show_dhcp_binding(uint8_t oltid);
LINE_ID_API int32_t line_id_show_pppoe_binding(uint8_t oltid);

/* ------------------------------------------------------------------------------------------ helpers for tools ---- */

/* Templates: text in which % and a letter stand for a line parameter; a reference is followed by one of
 * " ./:;[]{}<>()-_" or the end. These run in the caller's process on its own parameter table and need no agent; they
 * are not for a process that runs the agent. */

/* 0 when the template's references are well formed, else -161. */
LINE_ID_API int32_t line_id_check_format(const char* fmt);

/* Expand `fmt` with parameter set `set` (0 to 35) into `out` (at least 256 octets, zeroed by the caller; no terminator
 * is written). Octets written, at most 248, or -9, -31. */
LINE_ID_API int32_t line_id_print_format(int32_t set, const char* fmt, char* out);

/* "%_" to a space (input and output at most 1024 octets), and a space to "%_" (output up to twice the input). Both
 * return the length written and append no terminator. */
LINE_ID_API int32_t line_id_alias_to_space(const char* in, char* out);
LINE_ID_API int32_t line_id_space_to_alias(const char* in, char* out);

/* Create or empty the parameter table: 0 or -91. */
LINE_ID_API int32_t line_id_init_params(void);

/* Write a letter (A to Z, a to z) of a set; at most 50 characters are kept. 0; -1 set, -113 letter or pinned, -9 null.
 */
LINE_ID_API int32_t line_id_write_param(int32_t set, int32_t letter, const char* text, int32_t flag);

#ifdef __cplusplus
}
#endif

#endif
