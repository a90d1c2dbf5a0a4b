/// @file
/// Server blocks: what writers put into pool buffers and readers find there, in the 2010 and the 2024 form, and the
/// enumerations that travel in them. Shared with every program of the acquisition system, so byte for byte a format.
///
/// A server block is a head and, directly behind it, `nchan` sub-blocks. Each sub-block begins with a sub-head whose
/// `ldata` is the length of the whole sub-block, its 268-byte sub-head included.
///
/// A block is of the 2024 form if and only if its first 8 bytes, read as one word, are SB_PATTERN_2024; anything else,
/// all zeros included, is a 2010 block, whose first 8 bytes are its time stamp. The test is made per buffer.
#ifndef ZRK4_EVENT_H
#define ZRK4_EVENT_H

#include <cstddef>
#include <cstdint>

#include "bm_api.h"

/// Type of an event.
enum ZRK4_EVTYPE : int32_t {
    ZRK4_EV_HB = 0,     ///< carries dictionary, environment and update blocks; channel searches do not skip it
    ZRK4_EV_NORMAL = 1, ///< data
    ZRK4_EV_BOR = 2,    ///< begin of run
    ZRK4_EV_EOR = 3,    ///< end of run
    ZRK4_EV_ENV = 4,    ///< environment
    ZRK4_EV_UPD = 5,    ///< update
    ZRK4_EV_IMAGE = 6,
    ZRK4_EV_WS = 7,
    ZRK4_EV_MCP = 8,
    ZRK4_EV_WSS = 9,
    ZRK4_EV_BL1 = 10,
    ZRK4_EV_BL2 = 11,
    ZRK4_EV_BL3 = 12,
    ZRK4_EV_PG0 = 13,
    ZRK4_EV_PG1 = 14,
    ZRK4_EV_PG2 = 15,
    ZRK4_EV_GMD = 16,
    ZRK4_EV_PHOTEN = 17,
    ZRK4_EV_PHOTWL = 18,
    ZRK4_EV_BEAM_ENERGY = 19,
    ZRK4_EV_LLRF_ML = 20,
    ZRK4_EV_BEAM_ENERGY_BYPASS = 21,
    ZRK4_EV_SPECTR_1 = 22,
    ZRK4_EV_SPECTR_2 = 23,
    ZRK4_EV_SPECTR_3 = 24,
    ZRK4_EV_SPECTR_4 = 25,
    ZRK4_EV_SPECTR_5 = 26,
    ZRK4_EV_TOROID_ML = 27,
    ZRK4_EV_28 = 28,
    ZRK4_EV_29 = 29,
    ZRK4_EV_30 = 30,
    ZRK4_EV_31 = 31,
    ZRK4_EV_EVMAX = 32, ///< the count of types, not a type
};

/// Type of a sub-block. Values below 33 are the older codes. The library acts on the five run-control codes 33 to 37
/// alone and carries all others for the reader programs.
enum ZRK4_SUBBLOCK_TYPE : int32_t {
    ZRK4_UPD_BLOCK = 1,
    ZRK4_ENV_DICT_BLOCK = 2,
    ZRK4_ENV_BLOCK = 3,
    ZRK4_BOR_BLOCK = 4,
    ZRK4_EOR_BLOCK = 5,
    ZRK4_BLOCK_BPM = 6,
    ZRK4_BLOCK_BPM_Z = 7,
    ZRK4_BLOCK_BPM_S = 8,
    ZRK4_BLOCK_SINGLE = 9,
    ZRK4_BLOCK_TOROID = 10,
    ZRK4_BLOCK_RF_250K = 11,
    ZRK4_BLOCK_ENERGY = 12,
    ZRK4_BLOCK_IMAGE = 13,
    ZRK4_BLOCK_WS_FAST = 14,
    ZRK4_BLOCK_WS_SLOW = 15,
    ZRK4_BLOCK_CPLINTL = 16,
    ZRK4_BLOCK_GUNINTL = 17,
    ZRK4_BLOCK_MCP = 18,
    ZRK4_BLOCK_PHM = 19,
    ZRK4_BLOCK_WSS_RAW = 20,
    ZRK4_BLOCK_WSS_COR = 21,
    ZRK4_BLOCK_NAME_VALUE = 22,
    ZRK4_BLOCK_EQDATA = 23,
    ZRK4_BLOCK_IMG_ROI1 = 24,
    ZRK4_BLOCK_IMG_ROI2 = 25,
    ZRK4_BLOCK_IMG_ROI3 = 26,
    ZRK4_BLOCK_IMAGE_EXT = 27,
    ZRK4_BLOCK_GENERIC_SPECT = 28,
    ZRK4_UPD_BLOCK_DONT_USE_31 = 31,
    ZRK4_UPD_BLOCK_2010 = 33,      ///< records zrk4_upd_data_block_2010
    ZRK4_ENV_DICT_BLOCK_2010 = 34, ///< records zrk4_dict_data_block_2010
    ZRK4_ENV_BLOCK_2010 = 35,      ///< records zrk4_env_data_block_2010
    ZRK4_BOR_BLOCK_2010 = 36,      ///< begin of run
    ZRK4_EOR_BLOCK_2010 = 37,      ///< end of run
    ZRK4_BLOCK_BPM_2010 = 38,
    ZRK4_BLOCK_BPM_Z_2010 = 39,
    ZRK4_BLOCK_BPM_S_2010 = 40,
    ZRK4_BLOCK_1CHAN_2010 = 41,
    ZRK4_BLOCK_TOROID_2010 = 42,
    ZRK4_BLOCK_RF_250K_2010 = 43,
    ZRK4_BLOCK_ENERGY_2010 = 44,
    ZRK4_BLOCK_2CHAN_2010 = 45,
    ZRK4_BLOCK_WS_2010 = 46,
    ZRK4_BLOCK_4CHAN_2010 = 47,
    ZRK4_BLOCK_CPLINTL_2010 = 48,
    ZRK4_BLOCK_GUNINTL_2010 = 49,
    ZRK4_BLOCK_MCP_2010 = 50,
    ZRK4_BLOCK_PHM_2010 = 51,
    ZRK4_BLOCK_6CHAN_2010 = 52,
    ZRK4_BLOCK_8CHAN_2010 = 53,
    ZRK4_BLOCK_3CHAN_2010 = 60,
    ZRK4_BLOCK_5CHAN_2010 = 61,
    ZRK4_BLOCK_7CHAN_2010 = 62,
    ZRK4_BLOCK_MAX_2010 = 63, ///< one past the last code, not a type
};

/// First 64-bit word of a 2024 server block. As a time stamp its microseconds would be far above 999999.
inline constexpr uint64_t SB_PATTERN_2024 = 0xFBABBAFFFBABBAFF;

/// Seconds and microseconds; the key of an event in time mode. Compare times by field: read as one 64-bit word the
/// microseconds come on top.
struct BM_PACKED time_stamp {
    uint32_t timeup;  ///< seconds since the epoch
    uint32_t timelow; ///< microseconds, 0 to 999999
};
static_assert(sizeof(time_stamp) == 8 && alignof(time_stamp) == 1);

/// Head of a server block, 2010 form.
struct BM_PACKED zrk4_serv_block_head_2010 {
    time_stamp time;  ///< time stamp of the data
    int32_t ltotal;   ///< bytes of the whole server block, head included
    int32_t mpulse;   ///< event id of the data
    char server[256]; ///< name of the producing server, NUL-terminated
    int32_t tmask;    ///< trigger mask
    int32_t status;
    int32_t nchan; ///< number of sub-blocks
};
static_assert(sizeof(zrk4_serv_block_head_2010) == 284 && alignof(zrk4_serv_block_head_2010) == 1);
static_assert(offsetof(zrk4_serv_block_head_2010, time) == 0);
static_assert(offsetof(zrk4_serv_block_head_2010, ltotal) == 8);
static_assert(offsetof(zrk4_serv_block_head_2010, mpulse) == 12);
static_assert(offsetof(zrk4_serv_block_head_2010, server) == 16);
static_assert(offsetof(zrk4_serv_block_head_2010, tmask) == 272);
static_assert(offsetof(zrk4_serv_block_head_2010, status) == 276);
static_assert(offsetof(zrk4_serv_block_head_2010, nchan) == 280);

/// Head of a server block, 2024 form.
struct BM_PACKED zrk4_serv_block_head_2024 {
    uint64_t pattern; ///< SB_PATTERN_2024
    int64_t ltotal;   ///< bytes of the whole server block, head included
    int64_t mpulse;   ///< event id of the data
    time_stamp time;  ///< time stamp of the data
    char server[256]; ///< name of the producing server, NUL-terminated
    int32_t tmask;    ///< trigger mask
    int32_t status;
    int32_t nchan; ///< number of sub-blocks
    int32_t pad;   ///< never read
};
static_assert(sizeof(zrk4_serv_block_head_2024) == 304 && alignof(zrk4_serv_block_head_2024) == 1);
static_assert(offsetof(zrk4_serv_block_head_2024, pattern) == 0);
static_assert(offsetof(zrk4_serv_block_head_2024, ltotal) == 8);
static_assert(offsetof(zrk4_serv_block_head_2024, mpulse) == 16);
static_assert(offsetof(zrk4_serv_block_head_2024, time) == 24);
static_assert(offsetof(zrk4_serv_block_head_2024, server) == 32);
static_assert(offsetof(zrk4_serv_block_head_2024, tmask) == 288);
static_assert(offsetof(zrk4_serv_block_head_2024, status) == 292);
static_assert(offsetof(zrk4_serv_block_head_2024, nchan) == 296);

/// Sub-head, behind heads of both forms.
struct BM_PACKED zrk4_serv_block_subhead_2010 {
    char chname[256]; ///< channel name, NUL-terminated; an empty name never matches a search
    int32_t dtype;    ///< ZRK4_SUBBLOCK_TYPE
    int32_t error;    ///< the channel's error code, carried
    int32_t ldata;    ///< bytes of the whole sub-block, this sub-head included
};
static_assert(sizeof(zrk4_serv_block_subhead_2010) == 268 && alignof(zrk4_serv_block_subhead_2010) == 1);
static_assert(offsetof(zrk4_serv_block_subhead_2010, chname) == 0);
static_assert(offsetof(zrk4_serv_block_subhead_2010, dtype) == 256);
static_assert(offsetof(zrk4_serv_block_subhead_2010, error) == 260);
static_assert(offsetof(zrk4_serv_block_subhead_2010, ldata) == 264);

/// Value of one environment channel. An environment sub-block holds (ldata - 268) / 20 of them.
struct BM_PACKED zrk4_env_data_block_2010 {
    int32_t env_ch_idx;     ///< index of the channel in the dictionary
    int32_t env_ch_status;  ///< 0 = the value is valid
    time_stamp env_ch_time; ///< when the value was taken
    float env_ch_data;
};
static_assert(sizeof(zrk4_env_data_block_2010) == 20 && alignof(zrk4_env_data_block_2010) == 1);
static_assert(offsetof(zrk4_env_data_block_2010, env_ch_idx) == 0);
static_assert(offsetof(zrk4_env_data_block_2010, env_ch_status) == 4);
static_assert(offsetof(zrk4_env_data_block_2010, env_ch_time) == 8);
static_assert(offsetof(zrk4_env_data_block_2010, env_ch_data) == 16);

/// Value of one updated property. An update sub-block holds (ldata - 268) / 272 of them.
struct BM_PACKED zrk4_upd_data_block_2010 {
    char upd_prop[256];     ///< name of the property (channel), NUL-terminated
    int32_t upd_ch_status;  ///< 0 = the value is valid
    time_stamp upd_ch_time; ///< when the value was taken
    float upd_ch_data;
};
static_assert(sizeof(zrk4_upd_data_block_2010) == 272 && alignof(zrk4_upd_data_block_2010) == 1);
static_assert(offsetof(zrk4_upd_data_block_2010, upd_prop) == 0);
static_assert(offsetof(zrk4_upd_data_block_2010, upd_ch_status) == 256);
static_assert(offsetof(zrk4_upd_data_block_2010, upd_ch_time) == 260);
static_assert(offsetof(zrk4_upd_data_block_2010, upd_ch_data) == 268);

/// Name and index of one environment channel. A dictionary sub-block holds (ldata - 268) / 260 of them behind its
/// sub-head, without gaps, in any order; bytes behind the last whole record are not read. The index is what
/// `env_ch_idx` of the channel's values repeats: any number, not a position. Where a name stands twice the first one
/// counts.
struct BM_PACKED zrk4_dict_data_block_2010 {
    char dict_ch_name[256]; ///< bytes 0 to 255: name of the channel, NUL-terminated unless it has 256 characters; what
                            ///< stands behind the NUL is not read
    int32_t dict_ch_idx;    ///< bytes 256 to 259: index of the channel
};
static_assert(sizeof(zrk4_dict_data_block_2010) == 260 && alignof(zrk4_dict_data_block_2010) == 1);
static_assert(offsetof(zrk4_dict_data_block_2010, dict_ch_name) == 0);
static_assert(offsetof(zrk4_dict_data_block_2010, dict_ch_idx) == 256);

/// One server-block entry of an event slot: where a block of the event lies. An entry with `shmid` 0 or `bnum` -1 is a
/// hole, which readers skip.
struct BM_PACKED zrk4_client_sblock_data {
    char name[256]; ///< name of the block as its name reader gives it, NUL-padded
    int32_t shmid;  ///< segment id of the partition that holds it
    int32_t bnum;   ///< buffer number in that partition
};
static_assert(sizeof(zrk4_client_sblock_data) == 264 && alignof(zrk4_client_sblock_data) == 1);
static_assert(offsetof(zrk4_client_sblock_data, name) == 0);
static_assert(offsetof(zrk4_client_sblock_data, shmid) == 256);
static_assert(offsetof(zrk4_client_sblock_data, bnum) == 260);

#endif
