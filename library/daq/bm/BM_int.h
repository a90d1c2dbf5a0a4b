/// @file
/// Records of the two slot partitions, in which all processes of a host meet. Buffer 0 of each holds its control record,
/// buffers 1 and up are the slots; a client's or an event's slot number is its buffer number.
///
/// The event records exist in a 2010 and a 2024 form. Nothing in the partitions tells which is in use: all processes
/// that share them run in the same mode.
#ifndef ZRK4_BM_INT_H
#define ZRK4_BM_INT_H

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

#include "bm_api.h"
#include "event.h"

/// What a client slot's owner does.
enum BUF_MNG_CLI_TYPE : int32_t { CLI_T_READER = 1, CLI_T_WRITER = 2, CLI_T_INVAL = 3 };

/// Progress of one client on one event.
enum BUF_MNG_CLI_STATUS : int32_t {
    CLI_S_WAIT = 1, ///< not notified yet
    CLI_S_NTF = 2,  ///< its datagram was sent
    CLI_S_PROC = 3, ///< works on the event
    CLI_S_DONE = 4, ///< wants nothing more of it
    CLI_S_INVAL = 5
};

/// State of the client control block.
enum BUF_MNG_CLI_CTRL_STATUS : int32_t {
    CLI_C_CLN = 0,  ///< not set up
    CLI_C_INIT = 1, ///< the master has set the partitions up
    CLI_C_UPD = 2,  ///< a subscription has changed the counters
    CLI_C_INVALID = 3
};

/// State of an event control entry.
enum BUF_MNG_EVT_CTRL_STATUS : int32_t { EVT_C_FREE = 0, EVT_C_USED = 1, EVT_C_INVALID = 2 };

/// First word of an event slot's head in the 2024 form.
inline constexpr uint64_t EV_SLOT_PATTERN_2024 = 0xFF77FF77FF77FF77;

/// Client control block: start of buffer 0 of the client-slot partition.
struct BM_PACKED zrk4_client_ctrl_block {
    BUF_MNG_CLI_CTRL_STATUS status;
    int32_t clitotal;               ///< subscribed clients
    int32_t clireader;              ///< subscribed readers
    int32_t cliwriter;              ///< subscribed writers
    int32_t evtyper[ZRK4_EV_EVMAX]; ///< readers per event type
    int32_t evtypew[ZRK4_EV_EVMAX]; ///< writers per event type
};
static_assert(sizeof(zrk4_client_ctrl_block) == 272 && alignof(zrk4_client_ctrl_block) == 1);
static_assert(offsetof(zrk4_client_ctrl_block, status) == 0);
static_assert(offsetof(zrk4_client_ctrl_block, clitotal) == 4);
static_assert(offsetof(zrk4_client_ctrl_block, clireader) == 8);
static_assert(offsetof(zrk4_client_ctrl_block, cliwriter) == 12);
static_assert(offsetof(zrk4_client_ctrl_block, evtyper) == 16);
static_assert(offsetof(zrk4_client_ctrl_block, evtypew) == 144);

/// Head of a client slot. A reader's or a writer's record and the names of its server blocks follow.
struct BM_PACKED zrk4_client_slot_head {
    pid_t pid;        ///< the owning process
    time_stamp atime; ///< time of subscription; renewed when a reader is admitted to or done with an event
    int32_t evcnt;    ///< events
    ZRK4_EVTYPE evtype;
    BUF_MNG_CLI_TYPE cltype;
};
static_assert(sizeof(zrk4_client_slot_head) == 24 && alignof(zrk4_client_slot_head) == 1);
static_assert(offsetof(zrk4_client_slot_head, pid) == 0);
static_assert(offsetof(zrk4_client_slot_head, atime) == 4);
static_assert(offsetof(zrk4_client_slot_head, evcnt) == 12);
static_assert(offsetof(zrk4_client_slot_head, evtype) == 16);
static_assert(offsetof(zrk4_client_slot_head, cltype) == 20);

/// A client's parameters, as its subscriber passes them.
struct BM_PACKED zrk4_client {
    union {
        time_stamp time_out;   ///< writer
        time_stamp time_ratio; ///< reader: takes an event that its `tmask` misses once this time has passed; 0 = always
    };
    int32_t pri;   ///< priority
    int32_t tmask; ///< reader: trigger mask of the events it wants
};
static_assert(sizeof(zrk4_client) == 16 && alignof(zrk4_client) == 1);
static_assert(offsetof(zrk4_client, time_out) == 0);
static_assert(offsetof(zrk4_client, time_ratio) == 0);
static_assert(offsetof(zrk4_client, pri) == 8);
static_assert(offsetof(zrk4_client, tmask) == 12);

/// A reader's record, behind the head of its slot; its names begin at slot offset 48.
struct BM_PACKED zrk4_client_reader {
    zrk4_client client;
    int32_t qid;      ///< the UDP port on which the reader's process listens (BM's own `qid` is a socket)
    int32_t nsblocks; ///< number of names that follow; 0 = it wants every block
};
static_assert(sizeof(zrk4_client_reader) == 24 && alignof(zrk4_client_reader) == 1);
static_assert(offsetof(zrk4_client_reader, client) == 0);
static_assert(offsetof(zrk4_client_reader, qid) == 16);
static_assert(offsetof(zrk4_client_reader, nsblocks) == 20);

/// A writer's record. It has no port, so a writer's names begin 4 bytes before a reader's, at slot offset 44: deliberate.
struct BM_PACKED zrk4_client_writer {
    zrk4_client client;
    int32_t nsblocks; ///< number of names that follow
};
static_assert(sizeof(zrk4_client_writer) == 20 && alignof(zrk4_client_writer) == 1);
static_assert(offsetof(zrk4_client_writer, client) == 0);
static_assert(offsetof(zrk4_client_writer, nsblocks) == 16);

/// Bytes of one name in a client slot: at most 255 characters and a NUL.
inline constexpr size_t CLI_NAME_SIZE = 256;

/// Event control entry, 2010 form. Entry k of the table in buffer 0 describes slot k + 1.
struct BM_PACKED zrk4_event_ctrl_block {
    int32_t status; ///< BUF_MNG_EVT_CTRL_STATUS
    time_stamp key; ///< time key of the event
    int32_t eventid;
    int32_t evtype;
};
static_assert(sizeof(zrk4_event_ctrl_block) == 20 && alignof(zrk4_event_ctrl_block) == 1);
static_assert(offsetof(zrk4_event_ctrl_block, status) == 0);
static_assert(offsetof(zrk4_event_ctrl_block, key) == 4);
static_assert(offsetof(zrk4_event_ctrl_block, eventid) == 12);
static_assert(offsetof(zrk4_event_ctrl_block, evtype) == 16);

/// Event control entry, 2024 form.
struct BM_PACKED zrk4_event_ctrl_block_2024 {
    time_stamp key; ///< time key of the event
    int32_t status; ///< BUF_MNG_EVT_CTRL_STATUS
    int32_t evtype;
    int64_t eventid;
};
static_assert(sizeof(zrk4_event_ctrl_block_2024) == 24 && alignof(zrk4_event_ctrl_block_2024) == 1);
static_assert(offsetof(zrk4_event_ctrl_block_2024, key) == 0);
static_assert(offsetof(zrk4_event_ctrl_block_2024, status) == 8);
static_assert(offsetof(zrk4_event_ctrl_block_2024, evtype) == 12);
static_assert(offsetof(zrk4_event_ctrl_block_2024, eventid) == 16);

/// Head of an event slot, 2010 form. `nclients` client blocks follow, behind them `sbfilled` server-block entries.
struct BM_PACKED zrk4_event_slot_head {
    time_stamp time; ///< event key
    int32_t eventid; ///< union of the ids of all blocks
    ZRK4_EVTYPE evtype;
    int32_t tmask;      ///< trigger masks of all blocks
    int32_t status;     ///< status words of all blocks
    time_stamp start;   ///< when the slot was taken
    time_stamp lupdate; ///< last change; 0 until a block is entered
    pid_t pid;          ///< process that took the slot
    int32_t evsize;     ///< bytes, all server blocks together
    int32_t nsblocks;   ///< server blocks expected
    int32_t sbfilled;   ///< entries in use
    int32_t nclients;   ///< client blocks
};
static_assert(sizeof(zrk4_event_slot_head) == 60 && alignof(zrk4_event_slot_head) == 1);
static_assert(offsetof(zrk4_event_slot_head, time) == 0);
static_assert(offsetof(zrk4_event_slot_head, eventid) == 8);
static_assert(offsetof(zrk4_event_slot_head, evtype) == 12);
static_assert(offsetof(zrk4_event_slot_head, tmask) == 16);
static_assert(offsetof(zrk4_event_slot_head, status) == 20);
static_assert(offsetof(zrk4_event_slot_head, start) == 24);
static_assert(offsetof(zrk4_event_slot_head, lupdate) == 32);
static_assert(offsetof(zrk4_event_slot_head, pid) == 40);
static_assert(offsetof(zrk4_event_slot_head, evsize) == 44);
static_assert(offsetof(zrk4_event_slot_head, nsblocks) == 48);
static_assert(offsetof(zrk4_event_slot_head, sbfilled) == 52);
static_assert(offsetof(zrk4_event_slot_head, nclients) == 56);

/// Head of an event slot, 2024 form.
struct BM_PACKED zrk4_event_slot_head_2024 {
    uint64_t pattern; ///< EV_SLOT_PATTERN_2024
    time_stamp time;  ///< event key
    int64_t eventid;  ///< id of the last block
    ZRK4_EVTYPE evtype;
    int32_t tmask;      ///< trigger masks of all blocks
    int32_t status;     ///< status words of all blocks
    time_stamp start;   ///< when the slot was taken
    time_stamp lupdate; ///< last change; 0 until a block is entered
    pid_t pid;          ///< process that took the slot
    int64_t evsize;     ///< bytes, all server blocks together
    int32_t nsblocks;   ///< server blocks expected
    int32_t sbfilled;   ///< entries in use
    int32_t nclients;   ///< client blocks
    int32_t pad;
};
static_assert(sizeof(zrk4_event_slot_head_2024) == 80 && alignof(zrk4_event_slot_head_2024) == 1);
static_assert(offsetof(zrk4_event_slot_head_2024, pattern) == 0);
static_assert(offsetof(zrk4_event_slot_head_2024, time) == 8);
static_assert(offsetof(zrk4_event_slot_head_2024, eventid) == 16);
static_assert(offsetof(zrk4_event_slot_head_2024, evtype) == 24);
static_assert(offsetof(zrk4_event_slot_head_2024, tmask) == 28);
static_assert(offsetof(zrk4_event_slot_head_2024, status) == 32);
static_assert(offsetof(zrk4_event_slot_head_2024, start) == 36);
static_assert(offsetof(zrk4_event_slot_head_2024, lupdate) == 44);
static_assert(offsetof(zrk4_event_slot_head_2024, pid) == 52);
static_assert(offsetof(zrk4_event_slot_head_2024, evsize) == 56);
static_assert(offsetof(zrk4_event_slot_head_2024, nsblocks) == 64);
static_assert(offsetof(zrk4_event_slot_head_2024, sbfilled) == 68);
static_assert(offsetof(zrk4_event_slot_head_2024, nclients) == 72);

/// One client of an event, in the event's slot.
struct BM_PACKED zrk4_client_block {
    int32_t snum; ///< client slot number
    BUF_MNG_CLI_STATUS status;
};
static_assert(sizeof(zrk4_client_block) == 8 && alignof(zrk4_client_block) == 1);
static_assert(offsetof(zrk4_client_block, snum) == 0);
static_assert(offsetof(zrk4_client_block, status) == 4);

/// Notification datagram, 2010 form, host byte order.
struct BM_PACKED reader_message {
    int64_t mtype; ///< process id of the reader
    int32_t evslot;
    int32_t clslot;
    int32_t cln; ///< index of the reader's client block in the event slot
    time_stamp
        time; ///< seconds of the event's key; the microseconds' place carries the event id, there is no other room
    int32_t pad;
};
static_assert(sizeof(reader_message) == 32 && alignof(reader_message) == 1);
static_assert(offsetof(reader_message, mtype) == 0);
static_assert(offsetof(reader_message, evslot) == 8);
static_assert(offsetof(reader_message, clslot) == 12);
static_assert(offsetof(reader_message, cln) == 16);
static_assert(offsetof(reader_message, time) == 20);

/// Notification datagram, 2024 form, host byte order.
struct BM_PACKED reader_message_2024 {
    int64_t mtype; ///< process id of the reader
    int32_t evslot;
    int32_t clslot;
    int32_t cln;     ///< index of the reader's client block in the event slot
    time_stamp time; ///< the event's key
    int32_t pad;
    uint64_t event; ///< event id
};
static_assert(sizeof(reader_message_2024) == 40 && alignof(reader_message_2024) == 1);
static_assert(offsetof(reader_message_2024, mtype) == 0);
static_assert(offsetof(reader_message_2024, evslot) == 8);
static_assert(offsetof(reader_message_2024, clslot) == 12);
static_assert(offsetof(reader_message_2024, cln) == 16);
static_assert(offsetof(reader_message_2024, time) == 20);
static_assert(offsetof(reader_message_2024, event) == 32);

#endif
