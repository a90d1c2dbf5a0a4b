/* A reader: from its datagram to the end of the event. */

proctype Reader(byte me)
{
    byte b, s, k, i, meant, stands;
    bool go_on, all_done;
#ifdef EARLY_RETURN
    byte e, first, blocks[WRITERS];
#endif
    {
end:
    do
    :: atomic { datagrams[me - WRITERS - 1]?s, k ->
            meant = identity[s];
            go_on = (head_key[s] == k)
        };
        if
        :: !go_on -> printf("%d: stale datagram\n", me); goto next
        :: else
        fi;
        ONE {
            atomic {
                slot_lock[s] == NOBODY -> slot_lock[s] = me;
#ifndef NO_IDENTITY_AT_START
                if
                :: identity[s] != meant ->
                    REACHED(3, "reached: slot is another event's when its handler is to be called\n");
                    go_on = false; printf("%d: another event is in slot %d\n", me, s)
                :: else
                fi
#endif
            };
            if
            :: go_on -> go_on = used[s]
            :: else
            fi;
            stands = STATUS(s, me - 1);
            d_step {
                if
                :: go_on && stands != NTF ->
                    if
                    :: STATUS(s, me - 1) == WAIT && used[s] && key[s] != k -> LOSS("loss: event marked done unseen\n")
                    :: else
                    fi;
                    UNDER_LOCK(s);
                    STATUS(s, me - 1) = DONE; go_on = false
                :: go_on && stands == NTF ->
                    UNDER_LOCK(s);
                    STATUS(s, me - 1) = PROC;
                    READ_BY(me) = IN_EVENT(s);
                    printf("%d: its handler reads event %d in slot %d\n", me, key[s], s);
                    if
                    :: event_in[s] == 0 -> LOSS("loss: handler called for a slot without an event\n")
                    :: else
                    fi;
                    if
                    :: SEEN(s, me) -> LOSS("loss: handler called twice for an event\n")
                    :: else
                    fi;
                    SEEN(s, me) = true;
#if READERS > 1
                    if
                    :: key[s] == EVENTS && filled[s] == WRITERS && SEEN(s, 3) && SEEN(s, 4) ->
                        REACHED(8, "reached: every reader has read the last event\n")
                    :: else
                    fi
#endif
                :: else
                fi;
                slot_lock[s] = NOBODY; stands = 0
            }
        };
        if
        :: !go_on -> goto next
        :: else
        fi;
#ifdef EARLY_RETURN
        d_step { blocks[0] = ENTRY(s, 0); blocks[1] = (filled[s] > 1 -> ENTRY(s, 1) : 0); go_on = false };
        if
        :: blocks[0] != 0 -> b = blocks[0] - 1; return_early(b)
        :: else
        fi;
        if
        :: blocks[1] != 0 -> b = blocks[1] - 1; return_early(b)
        :: else
        fi;
        atomic { blocks[0] = 0; blocks[1] = 0; b = 0 };
#endif
        go_on = true;
        ONE {
            atomic {
                slot_lock[s] == NOBODY -> slot_lock[s] = me; READ_BY(me) = 0;
#ifndef NO_IDENTITY_AT_END
                if
                :: identity[s] != meant ->
                    REACHED(4, "reached: slot is another event's after the handler\n");
                    go_on = false; slot_lock[s] = NOBODY; printf("%d: another event is in slot %d\n", me, s)
                :: else
                fi
#endif
            };
            if
            :: !go_on -> goto next
            :: else
            fi;
            d_step {
                UNDER_LOCK(s);
                if
                :: event_in[s] != 0 && STATUS(s, me - 1) != 0 && !SEEN(s, me) ->
                    LOSS("loss: event marked done unseen\n")
                :: else
                fi;
                if
                :: STATUS(s, me - 1) != 0 -> STATUS(s, me - 1) = DONE
                :: else
                fi
            };
#ifdef TWO_HOLDS
            slot_lock[s] = NOBODY;
            atomic { slot_lock[s] == NOBODY -> slot_lock[s] = me };
#endif
            atomic { look(s); slot_lock[s] = NOBODY }
        };
        if
        :: all_done -> all_done = false; free_slot(s, meant)
        :: else
        fi;
next:
        atomic {
            if :: slot_lock[s] == me -> slot_lock[s] = NOBODY :: else fi;
            s = 0; k = 0; meant = 0; go_on = false
        }
    od
    } unless { dead == me }
}
