/* A new event, and a writer that looks for its events and enters its blocks. */

/* REQUIRES: the table's lock. */

inline make_event(s, k)
{
    ONE {
        atomic {
#ifndef MADE_WITHOUT_SLOT_LOCK
            slot_lock[s] == NOBODY -> slot_lock[s] = me;
#endif
            used[s] = true; key[s] = k;
            events[s]++;
            if
            :: events[s] == 2 -> REACHED(7, "reached: slot used again\n")
            :: else
            fi;
            event_in[s] = events[s];
            seen[s * READERS] = false;
#if READERS > 1
            seen[s * READERS + 1] = false;
#endif
            printf("%d: event %d begins in slot %d, the %d. there\n", me, k, s, events[s])
        };
        d_step {
            UNDER_LOCK(s);
            identity[s] = 0; head_key[s] = 0; expected[s] = 0; filled[s] = 0;
            n = 0;
            do
            :: n < CLIENTS -> STATUS(s, n) = 0; n++
            :: else -> break
            od;
            ENTRY(s, 0) = 0; ENTRY(s, 1) = 0; NAME(s, 0) = NO_NAME; NAME(s, 1) = NO_NAME;
            head_key[s] = k;
            n = 0
        };
        d_step {
            do
            :: n < CLIENTS ->
                if
                :: client[n] && !ALIVE(n) -> client[n] = false
                :: client[n] && ALIVE(n) ->
                    STATUS(s, n) = (n + 1 == me -> PROC : WAIT);
                    if
                    :: !IS_READER(n) -> expected[s]++
                    :: else
                    fi
                :: else
                fi;
                n++
            :: else -> break
            od;
            n = 0
        };
        atomic { identity[s] = event_in[s]; give_both(s) }
    }
}

proctype Writer(byte me)
{
    byte k = 1, b, s, i, rounds, meant;
    bool go_on, all_done, found;
    {
again:
    do
    :: k <= EVENTS ->
        take_buffer(b);
search:
        atomic {
            table_lock == NOBODY -> table_lock = me;
            s = 0; found = false;
            do
            :: s < SLOTS && used[s] && key[s] == k -> found = true; break
            :: s < SLOTS && !(used[s] && key[s] == k) -> s++
            :: else -> break
            od;
            if
            :: found -> table_lock = NOBODY; printf("%d: finds event %d in slot %d\n", me, k, s)
            :: else ->
                if
                :: slot_free[0] -> s = 0
                :: !slot_free[0] && slot_free[1] -> s = 1
                :: !slot_free[0] && !slot_free[1] -> s = SLOTS
                fi;
                if
                :: s < SLOTS -> slot_free[s] = false
                :: else -> table_lock = NOBODY
                fi
            fi
        };
        if
        :: s == SLOTS -> return_buffer(b, me); goto next
        :: else
        fi;
        if
        :: !found -> make_event(s, k)
        :: else
        fi;
        ONE {
            atomic {
                slot_lock[s] == NOBODY -> slot_lock[s] = me;
                go_on = true;
#ifndef NO_MOVED_TEST
                if
                :: rounds < 3 && !(used[s] && key[s] == k) ->
                    REACHED(2, "reached: slot is another event's when a block is to be entered\n");
                    slot_lock[s] = NOBODY; rounds++; go_on = false;
                    printf("%d: slot %d is another event's by now\n", me, s)
                :: else
                fi
#endif
            };
            if
            :: !go_on -> goto search
            :: else -> rounds = 0
            fi;
            if
            :: HAS_BLOCK_OF(s, me - 1) || filled[s] >= expected[s] ->
                d_step { go_on = false; slot_lock[s] = NOBODY; printf("%d: its block is refused\n", me) }
            :: else ->
                d_step {
                    UNDER_LOCK(s);
                    i = filled[s];
                    ENTRY(s, i) = b + 1; NAME(s, i) = me - 1;
                    printf("%d: enters buffer %d into slot %d\n", me, b, s);
                    i = 0
                };
                d_step { filled[s]++; owner[b] = IN_EVENT(s); b = 0 };
                atomic { look(s); slot_lock[s] = NOBODY }
            fi
        };
        if
        :: !go_on -> return_buffer(b, me)
        :: go_on && all_done -> all_done = false; free_slot(s, meant)
        :: else
        fi;
next:
        atomic { k++; b = 0; s = 0; meant = 0; rounds = 0; found = false; go_on = false }
    :: else -> break
    od
    } unless { dead == me };
#ifdef RESTART
    /* The program is started again, finds its old client slot free, and delivers its blocks once more. */
    if
    :: dead == me && !client[me - 1] ->
        atomic {
            dead = NOBODY; client[me - 1] = true;
            k = 1; b = 0; s = 0; i = 0; rounds = 0; meant = 0; go_on = false; all_done = false; found = false;
            printf("%d: is started again\n", me)
        };
        goto again
    :: dead != me
    fi
#endif
}
