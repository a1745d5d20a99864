/*
 * Chip SDK contract: the subset of the switch chip's API that the bridge library calls, with the
 * records, enumerations and constants it uses. Every call takes the chip unit first and returns a
 * code: 0 or positive is success, negative is one of the error codes below.
 */
#ifndef HALBD_PLATFORM_CHIP_SDK_H
#define HALBD_PLATFORM_CHIP_SDK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Return codes ------------------------------------------------------------------------- */
enum {
  BCM_E_NONE = 0,
  BCM_E_INTERNAL = -1,
  BCM_E_MEMORY = -2,
  BCM_E_UNIT = -3,
  BCM_E_PARAM = -4,
  BCM_E_EMPTY = -5,
  BCM_E_FULL = -6,
  BCM_E_NOT_FOUND = -7,
  BCM_E_EXISTS = -8,
  BCM_E_TIMEOUT = -9,
  BCM_E_BUSY = -10,
  BCM_E_FAIL = -11,
  BCM_E_DISABLED = -12,
  BCM_E_BADID = -13,
  BCM_E_RESOURCE = -14,
  BCM_E_CONFIG = -15,
  BCM_E_UNAVAIL = -16,
  BCM_E_INIT = -17,
  BCM_E_PORT = -18
};

/* Error texts: entry i is the text of code -i for i = 0..22; entry 23 is every other code. */
#define SHR_ERRMSG_COUNT 24
extern const char* _shr_errmsg[SHR_ERRMSG_COUNT];

/* The SDK's assertion: reports a failed expression with its source file and line. */
void _sal_assert(const char* expr, const char* file, int line);

/* ---- Scalar types -------------------------------------------------------------------------- */
typedef int bcm_port_t;      /* a local port number, or a gport where the call accepts one */
typedef int bcm_gport_t;     /* a global port: type in bits 26-31 */
typedef uint16_t bcm_vlan_t; /* VLAN number, 0 to 4095 */
typedef int bcm_multicast_t; /* replication group */
typedef int bcm_if_t;        /* encapsulation id of a replication-group member */

/* ---- Global ports ---------------------------------------------------------------------------- */
#define BCM_GPORT_TYPE_SHIFT 26
#define BCM_GPORT_TYPE_LOCAL 1   /* local port: port number in bits 0-10, bits 21-25 clear */
#define BCM_GPORT_TYPE_MODPORT 2 /* module port: module in bits 11-25, port in bits 0-10 */
#define BCM_GPORT_TYPE_TRUNK 3   /* trunk (LAG): trunk id in bits 0-25 */
#define BCM_GPORT_LOCAL_PORT_MASK 0x7ff
#define BCM_GPORT_LOCAL_RESERVED_MASK 0x3e00000
#define BCM_GPORT_TRUNK_ID_MASK 0x3ffffff
#define BCM_GPORT_MODPORT_MODULE_SHIFT 11
#define BCM_GPORT_MODPORT_MODULE_MASK 0x7fff

/* ---- Ports ---------------------------------------------------------------------------------- */
typedef enum bcm_port_discard_e {
  BCM_PORT_DISCARD_NONE = 0,  /* admit all frames */
  BCM_PORT_DISCARD_ALL = 1,   /* drop every frame */
  BCM_PORT_DISCARD_UNTAG = 2, /* drop untagged and priority-tagged frames */
  BCM_PORT_DISCARD_TAG = 3    /* drop tagged frames */
} bcm_port_discard_e;

enum {
  BCM_PORT_DTAG_MODE_NONE = 0,     /* single tag */
  BCM_PORT_DTAG_MODE_INTERNAL = 1, /* provider port facing the provider network */
  BCM_PORT_DTAG_MODE_EXTERNAL = 2  /* customer-facing port of a provider edge (Q-in-Q) */
};

typedef enum bcm_port_class_e {
  bcmPortClassVlanTranslateEgress = 3 /* the class that keys the egress VLAN translation table */
} bcm_port_class_t;

int bcm_port_tpid_set(int unit, bcm_port_t port, uint16_t tpid);
int bcm_port_inner_tpid_set(int unit, bcm_port_t port, uint16_t tpid);
int bcm_port_untagged_vlan_set(int unit, bcm_port_t port, bcm_vlan_t vid);
int bcm_port_untagged_priority_set(int unit, bcm_port_t port, int priority);
int bcm_port_dtag_mode_set(int unit, bcm_port_t port, int mode);
int bcm_port_discard_set(int unit, bcm_port_t port, int mode);
int bcm_port_class_get(int unit, bcm_port_t port, bcm_port_class_t pclass, uint32_t* pclass_id);
int bcm_port_class_set(int unit, bcm_port_t port, bcm_port_class_t pclass, uint32_t pclass_id);

/* ---- VLAN membership ------------------------------------------------------------------------ */
#define BCM_VLAN_GPORT_ADD_UNTAGGED 0x1 /* the member sends the VLAN's frames untagged */

int bcm_vlan_gport_add(int unit, bcm_vlan_t vlan, bcm_gport_t port, int flags);
int bcm_vlan_gport_delete(int unit, bcm_vlan_t vlan, bcm_gport_t port);
int bcm_vlan_gport_delete_all(int unit, bcm_vlan_t vlan);
int bcm_vlan_gport_get(int unit, bcm_vlan_t vlan, bcm_gport_t port, int* flags);
int bcm_vlan_gport_get_all(int unit, bcm_vlan_t vlan, int array_max, bcm_gport_t* gport_array,
                           int* flags_array, int* array_size);

/* ---- VLAN control record -------------------------------------------------------------------- */
#define BCM_VLAN_IGMP_SNOOP_DISABLE 0x800 /* flags: IGMP snooping off in the VLAN */

/* Valid-field masks of the selective get and set. */
#define BCM_VLAN_CONTROL_VLAN_BROADCAST_GROUP_MASK 0x2000
#define BCM_VLAN_CONTROL_VLAN_PROTOCOL_PKT_MASK 0x80000

typedef struct bcm_vlan_protocol_packet_ctrl_s {
  uint32_t dhcp_action; /* action flags for DHCP packets */
} bcm_vlan_protocol_packet_ctrl_t;

typedef struct bcm_vlan_control_vlan_s {
  uint32_t flags;
  bcm_multicast_t broadcast_group; /* replication group of broadcast frames; 0 when none */
  bcm_vlan_protocol_packet_ctrl_t protocol_pkt;
} bcm_vlan_control_vlan_t;

void bcm_vlan_control_vlan_t_init(bcm_vlan_control_vlan_t* control);
int bcm_vlan_control_vlan_get(int unit, bcm_vlan_t vlan, bcm_vlan_control_vlan_t* control);
int bcm_vlan_control_vlan_set(int unit, bcm_vlan_t vlan, bcm_vlan_control_vlan_t control);
int bcm_vlan_control_vlan_selective_get(int unit, bcm_vlan_t vlan, uint32_t valid_fields,
                                        bcm_vlan_control_vlan_t* control);
int bcm_vlan_control_vlan_selective_set(int unit, bcm_vlan_t vlan, uint32_t valid_fields,
                                        bcm_vlan_control_vlan_t* control);

/* ---- Per-port VLAN controls ------------------------------------------------------------------ */
typedef enum bcm_vlan_control_port_e {
  bcmVlanPortTranslateKeyFirst = 14, /* first ingress VLAN translation lookup key */
  bcmVlanPortTranslateKeySecond = 15 /* second ingress VLAN translation lookup key */
} bcm_vlan_control_port_t;

int bcm_vlan_control_port_set(int unit, bcm_port_t port, bcm_vlan_control_port_t type, int arg);

/* ---- VLAN translation ------------------------------------------------------------------------ */
typedef enum bcm_vlan_translate_key_e {
  bcmVlanTranslateKeyInvalid = 0,
  bcmVlanTranslateKeyPortDouble = 7, /* port, outer and inner VLAN */
  bcmVlanTranslateKeyPortOuter = 8,  /* port and outer VLAN */
  bcmVlanTranslateKeyPortInner = 9   /* port and inner VLAN */
} bcm_vlan_translate_key_t;

typedef enum bcm_vlan_action_e {
  bcmVlanActionNone = 0,
  bcmVlanActionAdd = 1,
  bcmVlanActionReplace = 2,
  bcmVlanActionDelete = 3,
  bcmVlanActionCopy = 4
} bcm_vlan_action_t;

typedef enum bcm_vlan_tpid_action_e {
  bcmVlanTpidActionNone = 0,
  bcmVlanTpidActionModify = 1
} bcm_vlan_tpid_action_t;

/*
 * What a translation entry does to a frame. Tag actions are chosen by the frame's tag state:
 * dt_ double-tagged, ot_ outer-tagged only, it_ inner-tagged only.
 */
typedef struct bcm_vlan_action_set_s {
  bcm_vlan_t new_outer_vlan;
  bcm_vlan_t new_inner_vlan;
  uint8_t new_inner_pkt_prio;
  int priority; /* new outer priority; -1 leaves it */
  uint16_t outer_tpid;
  uint16_t inner_tpid;
  bcm_vlan_tpid_action_t outer_tpid_action;
  bcm_vlan_tpid_action_t inner_tpid_action;
  bcm_vlan_action_t dt_outer;
  bcm_vlan_action_t dt_outer_pkt_prio;
  bcm_vlan_action_t dt_inner;
  bcm_vlan_action_t dt_inner_pkt_prio;
  bcm_vlan_action_t ot_outer;
  bcm_vlan_action_t ot_outer_pkt_prio;
  bcm_vlan_action_t it_outer;
  bcm_vlan_action_t it_outer_pkt_prio;
  bcm_vlan_action_t it_inner;
  bcm_vlan_action_t it_inner_pkt_prio;
  uint32_t flags;
} bcm_vlan_action_set_t;

void bcm_vlan_action_set_t_init(bcm_vlan_action_set_t* action);
int bcm_vlan_translate_action_add(int unit, bcm_gport_t port, bcm_vlan_translate_key_t key_type,
                                  bcm_vlan_t outer_vlan, bcm_vlan_t inner_vlan,
                                  bcm_vlan_action_set_t* action);
int bcm_vlan_translate_action_delete(int unit, bcm_gport_t port, bcm_vlan_translate_key_t key_type,
                                     bcm_vlan_t outer_vlan, bcm_vlan_t inner_vlan);
int bcm_vlan_translate_egress_action_add(int unit, int port_class, bcm_vlan_t outer_vlan,
                                         bcm_vlan_t inner_vlan, bcm_vlan_action_set_t* action);
int bcm_vlan_translate_egress_action_delete(int unit, int port_class, bcm_vlan_t outer_vlan,
                                            bcm_vlan_t inner_vlan);

/* ---- Replication groups ---------------------------------------------------------------------- */
int bcm_multicast_l2_encap_get(int unit, bcm_multicast_t group, bcm_gport_t port, bcm_vlan_t vlan,
                               bcm_if_t* encap_id);
int bcm_multicast_egress_add(int unit, bcm_multicast_t group, bcm_gport_t port, bcm_if_t encap_id);
int bcm_multicast_egress_delete(int unit, bcm_multicast_t group, bcm_gport_t port,
                                bcm_if_t encap_id);
int bcm_multicast_egress_delete_all(int unit, bcm_multicast_t group);

/* ---- Per-unit control record ----------------------------------------------------------------- */
#define SOC_MAX_NUM_DEVICES 16

/* Identification words of the chip behind a unit, in the order the record holds them. */
typedef struct soc_control_s {
  uint32_t chip_type;         /* the chip's type number */
  uint32_t xlate_pkt_prio;    /* non-zero: VLAN translation takes packet-priority actions */
  uint32_t chip_family_flags; /* family flags of the chip */
} soc_control_t;

/* Indexed by unit; null for a unit without a chip. */
extern soc_control_t* soc_control[SOC_MAX_NUM_DEVICES];

#ifdef __cplusplus
}  // extern "C"
#endif

#endif /* HALBD_PLATFORM_CHIP_SDK_H */
