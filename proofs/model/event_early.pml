/* The handler gives the event's blocks back early. */

#ifdef EARLY_RETURN
/* The handler gives back the event's blocks one by one: first the search for the event, then its entry. */
inline return_early(b)
{
    atomic {
        table_lock == NOBODY;
        e = 0;
        do
        :: e < SLOTS && used[e] && key[e] == k -> break
        :: e < SLOTS && !(used[e] && key[e] == k) -> e++
        :: else -> break
        od
    };
    if
    :: e < SLOTS ->
        ONE {
            atomic { slot_lock[e] == NOBODY -> slot_lock[e] = me };
            d_step {
                UNDER_LOCK(e);
                go_on = true;
                if
                :: filled[e] > 0 && ENTRY(e, 0) == b + 1 -> ENTRY(e, 0) = ENTRY(e, 1); NAME(e, 0) = NAME(e, 1)
                :: filled[e] > 1 && ENTRY(e, 1) == b + 1
                :: else -> go_on = false
                fi;
                if
                :: go_on ->
                    filled[e]--; ENTRY(e, filled[e]) = 0; NAME(e, filled[e]) = NO_NAME;
                    if :: owner[b] == IN_EVENT(e) -> owner[b] = ON_ITS_WAY + me :: else fi;
                    printf("%d: takes buffer %d out of slot %d\n", me, b, e)
                :: else
                fi;
                go_on = go_on && filled[e] == 0;
                if
                :: go_on -> first = identity[e]
                :: else
                fi
#ifndef ENDED_IN_ONE_HOLD
                ; slot_lock[e] = NOBODY
#else
                ; if :: !go_on -> slot_lock[e] = NOBODY :: else fi
#endif
            }
        };
        if
        :: go_on ->
            go_on = false;
#ifdef ENDED_IN_ONE_HOLD
            /* Ended as the entry was taken out, under the slot's lock alone. */
            ending = true;
            used[e] = false;
            d_step { return_slot(e); slot_lock[e] = NOBODY; ending = false }
#else
            atomic {
#ifndef ENDED_WITHOUT_TABLE
                table_lock == NOBODY && slot_lock[e] == NOBODY -> table_lock = me; slot_lock[e] = me;
#else
                slot_lock[e] == NOBODY -> slot_lock[e] = me;
#endif
#ifdef ENDED_WITHOUT_TEST
                go_on = true;
#else
                go_on = (identity[e] == first && used[e] && filled[e] == 0);
                if
                :: !go_on -> REACHED(5, "reached: event goes on although its last block was returned early\n")
                :: else
                fi;
#endif
                if
                :: go_on && event_in[e] != first -> LOSS("loss: new event freed\n")
                :: else
                fi
            };
            if
            :: go_on -> ending = true; used[e] = false; atomic { return_slot(e); ending = false }
            :: else
            fi;
            d_step {
                slot_lock[e] = NOBODY; go_on = false; first = 0;
                if :: table_lock == me -> table_lock = NOBODY :: else fi
            }
#endif
        :: else
        fi
    :: else
    fi;
    return_buffer(b, ON_ITS_WAY + me);
    e = 0
}
#endif
