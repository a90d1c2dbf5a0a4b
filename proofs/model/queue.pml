/* A partition's queue of free buffers, its gate and its count, at the length of single stores: process 1 takes buffers
   and hands them on, 2 returns what it is handed, 3 takes and returns its own. One of them may be killed between any
   two steps; the gate is then given back, the count is not. A text "loss: ..." names what must not happen. */

#ifndef BUFFERS
#define BUFFERS 3
#endif
#ifndef ROUNDS
#define ROUNDS 2            /* buffers that 1 and 3 take each */
#endif
#ifndef DEATH
#define DEATH 0             /* who may be killed */
#endif

#define NONE 255
#define NOBODY 0

#define LOSS(text) printf(text); assert(false)

/* Shows that a place is reached: a search that never gets there shows nothing about it. */
#ifndef WITNESS
#define WITNESS 0
#endif
#define REACHED(number, text) if :: WITNESS == number -> printf(text); assert(false) :: else fi

byte gate;
byte head = 0;
byte tail = BUFFERS - 1;
byte link[BUFFERS];
bool flagged[BUFFERS] = true;   /* status bit: queued */
byte owner[BUFFERS] = 1;        /* recorded owner: one that lives, of an earlier use */
byte count = BUFFERS;

chan handed_on = [BUFFERS] of { byte };

/* What no process can see. */
byte holder[BUFFERS];           /* who has it in its hands */
byte dead;
bool killed;
byte busy = 2;                  /* returns of one and the same buffer under way */

hidden byte n, last;
hidden byte in_queue[BUFFERS];

inline take_gate() { atomic { gate == NOBODY -> gate = me } }

inline append(b)
{
    link[b] = NONE;
    if
    :: head == NONE -> head = b; tail = b
    :: else ->
#ifndef TAIL_BELIEVED
        d_step {
            if
            :: tail == NONE || link[tail] != NONE ->
                last = head; n = 0;
                do
                :: link[last] != NONE && n < BUFFERS -> last = link[last]; n++
                :: else -> break
                od;
                tail = last; last = 0; n = 0;
                REACHED(2, "reached: tail lags behind\n");
                printf("%d: the tail lagged behind\n", me)
            :: else
            fi
        };
#endif
        if
        :: tail == NONE -> LOSS("loss: append writes outside the descriptors\n")
        :: else -> link[tail] = b
        fi;
        tail = b
    fi
}

inline return_buffer(b)
{
    if
    :: flagged[b] -> printf("%d: buffer %d is free already\n", me, b)
    :: else ->
        take_gate();
        if
#ifndef TESTED_BEFORE_GATE_ONLY
        :: flagged[b] ->
            REACHED(1, "reached: buffer returned by another one meanwhile\n");
            printf("%d: buffer %d is free by now\n", me, b); gate = NOBODY
        :: else ->
#else
        :: true ->
#endif
            printf("%d: returns buffer %d\n", me, b);
            d_step { flagged[b] = true; holder[b] = NOBODY };
            append(b);
            gate = NOBODY;
            count++
        fi
    fi
}

inline take_buffer(b)
{
    atomic { b = NONE; count > 0 -> count-- };
    do
    :: b != NONE -> break
    :: else ->
        take_gate();
        if
        :: head == NONE -> gate = NOBODY; atomic { count > 0 -> count-- }
        :: else ->
            b = head;
#ifndef OWNER_LAST
            owner[b] = me;
            flagged[b] = false;
#endif
#ifndef TAIL_LEFT_BEHIND
            if
            :: tail == b ->
                if
                :: link[b] != NONE -> REACHED(3, "reached: lagging tail taken out\n")
                :: else
                fi;
                tail = NONE
            :: else
            fi;
#endif
            atomic {
                if
                :: holder[b] != NOBODY -> LOSS("loss: buffer handed out twice\n")
                :: else
                fi;
                holder[b] = me;
                head = link[b];
                printf("%d: takes buffer %d\n", me, b)
            };
            if
            :: head == NONE -> tail = NONE
            :: else
            fi;
            link[b] = NONE;
#ifdef OWNER_LAST
            flagged[b] = false;
#endif
            gate = NOBODY;
            owner[b] = me
        fi
    od
}

proctype Taker(byte me)
{
    byte b, left = ROUNDS;
    {
#ifdef RETURNED_BY_TWO
    return_buffer(0);
    busy--;
    busy == 0;
#endif
    do
    :: left > 0 -> take_buffer(b); atomic { handed_on!b; b = 0; left-- }
    :: else -> break
    od
    } unless { dead == me }
}

proctype Returner(byte me)
{
    byte b;
    {
#ifdef RETURNED_BY_TWO
    return_buffer(0);
    busy--;
    busy == 0;
#endif
end:
    do
    :: atomic { handed_on?b; holder[b] = me }; return_buffer(b); b = 0
    od
    } unless { dead == me }
}

proctype User(byte me)
{
    byte b, left = ROUNDS;
    {
#ifdef RETURNED_BY_TWO
    busy == 0;
#endif
    do
    :: left > 0 -> take_buffer(b); return_buffer(b); atomic { b = 0; left-- }
    :: else -> break
    od
    } unless { dead == me }
}

inline walk()
{
    n = 0;
    do
    :: n < BUFFERS -> in_queue[n] = false; n++
    :: else -> break
    od;
    n = 0; last = head;
    do
    :: last != NONE && n < BUFFERS && !in_queue[last] -> in_queue[last] = true; last = link[last]; n++
    :: else -> break
    od;
    if
    :: last != NONE -> LOSS("loss: the queue has a cycle\n")
    :: else
    fi
}

/* When nothing moves any more: what is missing, before and after a repair. */
proctype Checker(byte me)
{
    timeout;
    d_step {
        printf("%d: count is %d, head %d, tail %d\n", me, count, head, tail);
        walk();
#ifndef RETURNED_BY_TWO
        if
        :: count > n -> LOSS("loss: the count exceeds the queue\n")
        :: else
        fi;
#endif
        if
        :: !killed && (n < BUFFERS || count < BUFFERS) -> LOSS("loss: buffer lost\n")
        :: killed && DEATH != 2 && count + len(handed_on) + 1 < BUFFERS -> LOSS("loss: more than one buffer lost by one death\n")
        :: else
        fi;
        n = 0;
        do
        :: n < BUFFERS ->
            if
            :: in_queue[n]
            :: !in_queue[n] && flagged[n] -> printf("a repair brings back buffer %d: it is marked as free\n", n)
            :: !in_queue[n] && !flagged[n] && killed && owner[n] == DEATH ->
                printf("a repair brings back buffer %d: its owner is dead\n", n)
            :: !in_queue[n] && !flagged[n] && killed && DEATH == 2 && holder[n] == DEATH ->
                printf("buffer %d: its owner lives, he who returned it is dead\n", n)
            :: !in_queue[n] && !flagged[n] && handed_on??[eval(n)] -> printf("buffer %d is handed on\n", n)
            :: else -> LOSS("loss: buffer lost, and no repair can tell\n")
            fi;
            n++
        :: else -> break
        od;
        n = 0; last = 0
    }
}

#if DEATH
proctype Death()
{
    d_step {
        killed = true; dead = DEATH;
        if :: gate == DEATH -> gate = NOBODY :: else fi;
        printf("%d: is killed\n", DEATH)
    }
}
#endif

init
{
    d_step {
        n = 0;
        do
        :: n < BUFFERS - 1 -> link[n] = n + 1; n++
        :: else -> break
        od;
        link[BUFFERS - 1] = NONE;
#ifdef RETURNED_BY_TWO
        head = link[0]; link[0] = NONE; flagged[0] = false; count--; holder[0] = 1;
#endif
        n = 0
    };
    atomic {
        run Taker(1); run Returner(2); run User(3); run Checker(4);
#if DEATH
        run Death()
#endif
    }
}
