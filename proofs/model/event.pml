/* The life of events: search, entry, look at the clients, notification, reading, early return, the way back, the
   monitor, and the death of one process. Processes 1 and 2 write, 3 and 4 read, 5 is the monitor; client c of a slot is
   process c + 1. A text "loss: ..." names what must not happen.

   A step is what one process does without another one looking in between. Taking a lock belongs to the step behind it
   and giving it to the step before it. In steps of full length, everything that is done under a slot's lock is one
   step: every change of a slot's head and client blocks then asserts that the lock is held, so nobody could look. With
   -DFINE each of these steps is taken apart. Sizes and guards are chosen with -D: models.tsv lists what is run. */

#ifndef EVENTS
#define EVENTS 2            /* each writer delivers one block for each of them, in order */
#endif
#ifndef BUFFERS
#define BUFFERS 3
#endif
#ifndef READERS
#define READERS 2
#endif
#ifndef JUDGEMENTS
#define JUDGEMENTS 0        /* how often the monitor takes an event for suspicious although others go on */
#endif
#ifndef DEATH
#define DEATH 0             /* who may die, at any step: 0 nobody, else the process */
#endif
#ifndef OWN_READER
#define OWN_READER 0        /* reader that runs in the monitor's process: its work on an event is not looked at */
#endif

#define SLOTS 2
#define WRITERS 2
#define CLIENTS (WRITERS + READERS)
#define MONITOR 5
#define NOBODY 0

#define WAIT 1
#define NTF 2
#define PROC 3
#define DONE 4

#define FREE 0
#define IN_EVENT(s) (10 + (s) * 8 + event_in[s]) /* the event in slot s lists the buffer */
#define ON_ITS_WAY 30       /* + process: taken out of an event, not yet back */
#define NO_NAME 9

#ifdef FINE
#define ONE
#define UNDER_LOCK(s) skip
#else
#define ONE atomic
#define UNDER_LOCK(s) assert(slot_lock[s] == me)
#endif

#define LOSS(text) printf(text); assert(false)
#ifdef SLOTS_ALONE          /* what becomes of buffers is not looked at */
#define LOSS_OF_BUFFER(text) skip
#else
#define LOSS_OF_BUFFER(text) LOSS(text)
#endif

/* Shows that a place is reached: a search that never gets there shows nothing about it. */
#ifndef WITNESS
#define WITNESS 0
#endif
#define REACHED(number, text) if :: WITNESS == number -> printf(text); assert(false) :: else fi

byte table_lock;
byte slot_lock[SLOTS];

/* The control table, and whether the slot's own buffer is in its partition's free queue. */
bool used[SLOTS];
byte key[SLOTS];
bool slot_free[SLOTS] = true;

/* Head of a slot: identity (0 while the event is being made), key, blocks expected and entered. */
byte identity[SLOTS];
byte head_key[SLOTS];
byte expected[SLOTS];
byte filled[SLOTS];
byte status[SLOTS * CLIENTS];      /* 0: takes no part */
byte entry[SLOTS * WRITERS];       /* buffer + 1; 0: hole */
byte entry_name[SLOTS * WRITERS];  /* the writer whose block it is */

bool client[CLIENTS] = true;       /* client slot handed out */
bool queued[BUFFERS] = true;

chan datagrams[READERS] = [EVENTS] of { byte, byte }; /* slot, key */

/* What no process can see. */
byte owner[BUFFERS];
byte events[SLOTS];                /* events made so far in the slot */
byte event_in[SLOTS];              /* which of them is in it, 0: none */
byte reading[READERS];             /* slot and event that a handler is at work on */
bool seen[SLOTS * READERS];        /* the reader's handler was called for the event in the slot */
byte dead;
bool killed;
bool ending;                       /* an early return is between its last test and the end of the event */

/* Used inside one step only. */
hidden byte n, r, finished, taking_part;
hidden byte notified, writers_left;

#define ALIVE(c) (dead != (c) + 1)
#define IS_READER(c) ((c) >= WRITERS)
#define STATUS(s, c) status[(s) * CLIENTS + (c)]
#define ENTRY(s, i) entry[(s) * WRITERS + (i)]
#define NAME(s, i) entry_name[(s) * WRITERS + (i)]
#define HAS_BLOCK_OF(s, w) ((filled[s] > 0 && NAME(s, 0) == (w)) || (filled[s] > 1 && NAME(s, 1) == (w)))
#define READ_BY(p) reading[(p) - WRITERS - 1]
#define SEEN(s, p) seen[(s) * READERS + (p) - WRITERS - 1]

#include "event_buffers.pml"
#include "event_clients.pml"
#include "event_writer.pml"
#include "event_early.pml"
#include "event_reader.pml"
#include "event_monitor.pml"

#if DEATH
/* It comes in every run, at some time; runs without it are other searches. The monitor's changes nothing unless it is
   at work, which it is with the table's lock alone. */
proctype Death()
{
end:
    d_step {
#if DEATH == 5
        table_lock == DEATH;
#endif
        killed = true; dead = DEATH;
        printf("%d: is killed\n", dead);
        if :: table_lock == dead -> table_lock = NOBODY :: else fi;
        if :: slot_lock[0] == dead -> slot_lock[0] = NOBODY :: else fi;
        if :: slot_lock[1] == dead -> slot_lock[1] = NOBODY :: else fi;
        ending = false;
#if DEATH == 3 || DEATH == 4
        READ_BY(DEATH) = 0
#endif
    }
}
#endif

init
{
    atomic {
        run Writer(1); run Writer(2);
        run Reader(3);
#if READERS > 1
        run Reader(4);
#endif
        run Monitor(MONITOR);
#if DEATH
        run Death()
#endif
    }
}
