/* Buffers and slots go back; their queue itself is looked at in queue.pml. */

inline take_buffer(b)
{
    atomic {
        if
        :: queued[0] -> b = 0
        :: !queued[0] && queued[1] -> b = 1
#if BUFFERS > 2
        :: !queued[0] && !queued[1] && queued[2] -> b = 2
#endif
        fi;
        queued[b] = false;
        if
        :: owner[b] != FREE -> LOSS_OF_BUFFER("loss: buffer handed out twice\n")
        :: else
        fi;
        owner[b] = me;
        printf("%d: takes buffer %d\n", me, b)
    }
}

/* `from`: who may return it. A buffer that is queued already is refused. */
inline return_buffer(b, from)
{
    d_step {
        printf("%d: returns buffer %d\n", me, b);
        if
        :: queued[b] -> printf("%d: it is free already\n", me)
        :: else ->
            if
            :: owner[b] != from -> LOSS_OF_BUFFER("loss: buffer returned from under its next owner\n")
            :: else
            fi;
            queued[b] = true;
            owner[b] = FREE
        fi
    }
}

inline return_slot(s)
{
    if
    :: slot_free[s] -> LOSS("loss: slot returned twice\n")
    :: else
    fi;
    slot_free[s] = true;
    event_in[s] = 0;
    key[s] = 0;             /* nobody reads it before the next event */
    printf("%d: slot %d goes back\n", me, s)
}

/* ---- the way back: the table's lock is held ---- */

inline free_used_slot(s)
{
    i = 0;
    do
    :: !used[s] -> break
    :: used[s] && i < filled[s] ->
#ifdef RETURNED_BEFORE_HOLE
        if
        :: ENTRY(s, i) != 0 -> return_buffer((ENTRY(s, i) - 1), IN_EVENT(s)); ENTRY(s, i) = 0; i++
        :: else -> i++
        fi
#else
        atomic {
            if
            :: ENTRY(s, i) != 0 ->
                r = 0;
                do
                :: r < READERS ->
                    if
                    :: reading[r] == IN_EVENT(s) ->
                        LOSS_OF_BUFFER("loss: handler reads a returned buffer\n")
                    :: else
                    fi;
                    r++
                :: else -> r = 0; break
                od;
                b = ENTRY(s, i) - 1;
                ENTRY(s, i) = 0;
                if
                :: owner[b] == IN_EVENT(s) -> owner[b] = ON_ITS_WAY + me
                :: else
                fi;
                go_on = true
            :: else -> go_on = false
            fi
        };
        if
        :: go_on -> return_buffer(b, ON_ITS_WAY + me); i++
        :: else -> i++
        fi
#endif
    :: used[s] && i >= filled[s] ->
        used[s] = false;
        atomic { return_slot(s) };
        break
    od;
    atomic { b = 0; i = 0; go_on = false }
}

inline free_slot(s, meant)
{
    atomic {
        table_lock == NOBODY -> table_lock = me;
        printf("%d: has the table, to free slot %d\n", me, s);
        go_on = used[s];
#ifndef NO_IDENTITY_AT_FREEING
        if
        :: identity[s] != meant ->
            REACHED(1, "reached: slot is another event's when it is to be freed\n");
            go_on = false; printf("%d: another event is in it\n", me)
        :: else
        fi;
#endif
        if
        :: go_on && meant != 0 && meant != event_in[s] -> LOSS("loss: new event freed\n")
        :: go_on && (meant == 0 || meant == event_in[s])
        :: !go_on -> table_lock = NOBODY
        fi
    };
    if
    :: go_on ->
#ifndef FREED_WITHOUT_SLOT_LOCK
        /* Where a block is still missing a late writer may be at its entry. */
        if
        :: filled[s] < expected[s] ->
            REACHED(9, "reached: event ends although a block is missing\n");
            atomic { slot_lock[s] == NOBODY -> slot_lock[s] = me }
        :: else
        fi;
#endif
        free_used_slot(s);
        give_both(s)
    :: else
    fi
}

inline give_both(s)
{
    d_step {
        if
        :: slot_lock[s] == me -> slot_lock[s] = NOBODY
        :: else
        fi;
        table_lock = NOBODY
    }
}
