/* The monitor, and what must be back when nothing moves any more. */

/* Sets `keep`. A live writer at work keeps its event for twenty periods: it may or may not be over. What the monitor
   writes is written a step after it was read, unless the slot's lock is held. */
inline decide(s)
{
    d_step {
        keep = false; n = 0; told = 0;
        do
        :: n < CLIENTS ->
            if
            :: STATUS(s, n) == 0 || !client[n] || n + 1 == OWN_READER
            :: else ->
                if
                :: !ALIVE(n) -> client[n] = false
                :: ALIVE(n) && STATUS(s, n) == PROC && IS_READER(n) ->
                    REACHED(6, "reached: reader at work keeps a suspicious event\n");
                    keep = true
                :: ALIVE(n) && STATUS(s, n) == NTF -> told = told | (1 << n)
                :: else
                fi
            fi;
            n++
        :: else -> break
        od;
        n = 0
    };
    d_step {
        do
        :: n < CLIENTS ->
            if
            :: told & (1 << n) -> STATUS(s, n) = DONE
            :: else
            fi;
            n++
        :: else -> break
        od;
        n = 0; told = 0
    }
}

inline try_slot_lock(s)
{
    atomic {
        if
        :: slot_lock[s] == NOBODY -> slot_lock[s] = me
#ifdef STALLED_HOLDER
        :: slot_lock[s] != NOBODY -> printf("%d: goes on without the lock of slot %d\n", me, s)
#endif
#ifdef STALLED_AT_EARLY_END
        :: slot_lock[s] != NOBODY && ending -> printf("%d: goes on without the lock of slot %d\n", me, s)
#endif
        fi
    }
}

inline judge(s)
{
    atomic { table_lock == NOBODY -> table_lock = me; printf("%d: takes slot %d for suspicious\n", me, s) };
    if
    :: !used[s] -> table_lock = NOBODY
    :: else ->
#ifdef DECIDED_APART
        decide(s);
        table_lock = NOBODY;
        if
        :: keep
        :: else ->
            atomic { table_lock == NOBODY -> table_lock = me };
            if
            :: used[s] -> free_used_slot(s)
            :: else
            fi;
            table_lock = NOBODY
        fi
#else
#if !defined(JUDGED_WITHOUT_SLOT_LOCK) && !defined(LOCK_AFTER_DECISION)
        try_slot_lock(s);
#endif
        decide(s);
        if
        :: keep
        :: else ->
#ifdef LOCK_AFTER_DECISION
            try_slot_lock(s);
#endif
            free_used_slot(s)
        fi;
        give_both(s)
#endif
    fi;
    keep = false
}

/* The monitor's own look at client slots. */
inline throw_out_the_dead()
{
    d_step {
        n = 0;
        do
        :: n < CLIENTS ->
            if
            :: !ALIVE(n) -> client[n] = false
            :: else
            fi;
            n++
        :: else -> break
        od;
        n = 0
    }
}

/* Nothing moves any more. What is left is what neither the monitor nor a repair can bring back. */
inline nothing_is_lost()
{
    d_step {
        n = 0;
        do
        :: n < BUFFERS ->
            if
            :: queued[n]
            :: !queued[n] && killed && owner[n] == DEATH -> printf("a repair brings back buffer %d\n", n)
            :: !queued[n] && killed && owner[n] == ON_ITS_WAY + DEATH -> printf("buffer %d: its owner lives\n", n)
            :: else -> LOSS_OF_BUFFER("loss: buffer lost\n")
            fi;
            n++
        :: else -> break
        od;
        n = 0;
        do
        :: n < SLOTS ->
            if
            :: slot_free[n]
            :: !slot_free[n] && killed && !used[n] -> printf("a repair brings back slot %d\n", n)
            :: else -> LOSS("loss: slot lost\n")
            fi;
            n++
        :: else -> break
        od;
        n = 0
    }
}

proctype Monitor(byte me)
{
    byte left = JUDGEMENTS, b, i, told;
    bool keep, go_on;
next_master:
    {
    do
#if JUDGEMENTS > 0
    :: atomic { left > 0 && used[0] -> left-- }; judge(0)
    :: atomic { left > 0 && used[1] -> left-- }; judge(1)
#endif
#ifdef RESTART
    :: atomic { dead != NOBODY && client[dead - 1] -> throw_out_the_dead() }
#endif
    :: timeout ->
#ifdef ALL_IS_WELL
        if
        :: used[0] || used[1] -> LOSS("loss: event left to the monitor\n")
        :: else
        fi;
#endif
        if
        :: used[0] -> judge(0)
        :: used[1] -> judge(1)
        :: else -> break
        fi
    od;
    nothing_is_lost()
    } unless { dead == me };
    if
    :: dead == me -> atomic { dead = NOBODY; keep = false; go_on = false; i = 0; b = 0; told = 0 }; goto next_master
    :: else
    fi
}
