/* A look at the clients of an event. REQUIRES: the slot's lock. */

#ifdef READS_FIRST_BLOCK
#define WANTS_ARE_IN(s, c) HAS_BLOCK_OF(s, 0)
#else
#define WANTS_ARE_IN(s, c) (!writers_left)
#endif
#define TO_BE_TOLD(s, c) (STATUS(s, c) == WAIT && client[c] && WANTS_ARE_IN(s, c))

inline tell(s, c)
{
    STATUS(s, c) = NTF;
    notified = true;
    printf("%d: tells %d of slot %d\n", me, c + 1, s);
    if
    :: len(datagrams[c - WRITERS]) < EVENTS -> datagrams[c - WRITERS]!s, head_key[s]
    :: else -> printf("%d: the datagram is lost\n", me)
    fi
}

inline look(s)
{
    d_step {
        UNDER_LOCK(s);
        meant = identity[s];
        notified = false; finished = 0; taking_part = 0; writers_left = false;
        n = 0;
        do
        :: n < CLIENTS ->
            if
            :: STATUS(s, n) == 0
            :: else ->
                taking_part++;
                if
                :: client[n] && !IS_READER(n) ->
                    if
                    :: STATUS(s, n) == DONE || HAS_BLOCK_OF(s, n) -> STATUS(s, n) = DONE; finished++
                    :: else -> writers_left = true
                    fi
                :: !client[n] && STATUS(s, n) == WAIT -> STATUS(s, n) = DONE; finished++
                :: else ->
                    if
                    :: STATUS(s, n) == DONE -> finished++
                    :: else
                    fi
                fi
            fi;
            n++
        :: else -> break
        od;
        n = WRITERS;
        do
        :: n < CLIENTS && TO_BE_TOLD(s, n) -> tell(s, n); n++
        :: n < CLIENTS && !TO_BE_TOLD(s, n) -> n++
        :: else -> break
        od;
        all_done = (finished == taking_part && !notified);
        if
        :: !all_done -> meant = 0
        :: else -> printf("%d: finds all clients of slot %d done\n", me, s)
        fi;
        finished = 0; taking_part = 0; notified = false; writers_left = false; n = 0
    }
}
