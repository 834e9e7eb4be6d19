/*
 * arrivals.pml - the disk arbitration service and the daemon, as far as the arrival of disks goes:
 * disks that come and are pulled, the session's queue, the ten seconds, the daemon's wait for the
 * Finder. conformance/model/check says which claims hold under which rules. Time is order alone: a
 * wait for the Finder lasts longer than the limit or not.
 *
 * The rules are switched by -DNAME:
 *   LIMIT      a peek that the daemon does not answer in time is waited for no longer, and the
 *              session is offered nothing more until it fetches its queue again
 *   AUTOMATIC  after the peeks the system mounts each disk that nobody has mounted
 *   QUEUED     what is queued for the session stays there when the disk is pulled
 * what happens:
 *   PULLED     disks may be pulled at any time
 *   REFUSED    a mount that the daemon asks for may fail
 *   LATE       the Finder comes at any time after the start; else it is there from the beginning
 * The claims are the three assertions:
 *   every disk that stays is offered to the daemon in the end;
 *   the system mounts none of them by itself;
 *   no disk is offered that was pulled before.
 */
#define DISKS 3 /* one is mounted, one waits too long, one comes after that */

#ifdef LIMIT
#define limitPassed waiting
#else
#define limitPassed false
#endif

mtype = { peek, done };
chan queue = [2 * DISKS] of { mtype, byte };    /* at the service, for the daemon's session */
chan fetched = [2 * DISKS] of { mtype, byte };  /* in the daemon */

byte come;              /* the disks that have come: 0 is the first */
bool pulled[DISKS];
bool offered[DISKS];    /* the daemon's callback was called */
bool answered[DISKS];   /* the daemon is done with the peek */
bool requested[DISKS];  /* the daemon asked for a mount */
bool silent;            /* the session let the limit pass */
bool waiting;           /* the daemon waits for the Finder, for longer than the limit */
bool mountedBySystem;
#ifdef LATE
bool finder;
#else
bool finder = true;
#endif

/* Whoever holds the modems: pulls some of those that have come, or none. */
#define PULL(d) :: atomic { come > d && !pulled[d] -> pulled[d] = true; printf("disk %d is pulled\n", d) }
proctype Hand()
{
    do
    PULL(0)
    PULL(1)
    PULL(2)
    :: break
    od
}

/* The service's way with one disk. */
proctype Disk(byte d)
{
    if
    :: atomic { come == d && silent ->
           come++;
           printf("disk %d comes, and no peek is queued\n", d)
       }
    :: atomic { come == d && !silent ->
           come++;
           printf("disk %d comes, and a peek is queued\n", d);
           queue!peek,d
       };
        if
        :: answered[d]
        :: atomic {
               limitPassed && !answered[d] ->
               printf("the limit passes without an answer for disk %d\n", d);
               silent = true
           }
        :: pulled[d]
        fi
    fi;
    if
    :: atomic { requested[d] && !pulled[d] -> printf("disk %d is mounted as asked\n", d) };
        queue!done,d;
        goto mounted
#ifdef REFUSED
    :: atomic { requested[d] && !pulled[d] -> printf("the mount of disk %d fails\n", d) };
        queue!done,d
#endif
    :: atomic { requested[d] && pulled[d] -> queue!done,d }
    :: !requested[d]
    fi;
#ifdef AUTOMATIC
    if
    :: atomic {
           !pulled[d] ->
           printf("the system mounts disk %d by itself\n", d);
           mountedBySystem = true;
           assert(!mountedBySystem)
       }
    :: pulled[d]
    fi;
#endif
mounted:
    skip
}

/* The daemon's callback. */
inline Offer(d)
{
    printf("disk %d is offered\n", d);
    assert(!pulled[d]);
    offered[d] = true;
    requested[d] = true
}

active proctype Daemon()
{
    mtype what;
    byte d;
end:
    do
    :: atomic {
           empty(fetched) && nempty(queue) ->
           silent = false;
           do
           :: nempty(queue) -> queue?what,d; fetched!what,d
           :: empty(queue) -> break
           od
       }
    :: atomic {
           fetched?peek,d ->
           if
#ifdef QUEUED
           :: Offer(d)
#else
           :: !pulled[d] -> Offer(d)
           :: pulled[d]
#endif
           fi;
           answered[d] = true
       }
    :: fetched?done,d ->
        if
        :: finder
        :: atomic { !finder -> printf("the daemon waits for the Finder\n"); waiting = true };
            finder;
            waiting = false
        fi
    od
}

init
{
    byte d;
    atomic {
        for (d : 0 .. DISKS - 1) {
            run Disk(d)
        }
#ifdef PULLED
        run Hand()
#endif
    }
    atomic { finder = true; printf("the Finder runs\n") }
    timeout;
    for (d : 0 .. DISKS - 1) {
        assert(offered[d] || pulled[d])
    }
}
