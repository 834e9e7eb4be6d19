#!/bin/sh
# Becomes the daemon with faults.c preloaded as well: kestrun-bench takes it for the daemon.
LD_PRELOAD=$LD_PRELOAD:$KESTRUN_FAULT_LIBRARY exec "$KESTRUN_FAULT_PROGRAM"
