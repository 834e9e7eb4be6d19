// Disks.h - the disks that are there, and those that have just arrived.
#ifndef PLATFORM_LINUX_DISKS_H
#define PLATFORM_LINUX_DISKS_H

#include "Identity.h"
#include "Labels.h"
#include "MountPoints.h"
#include "Runtime.h"

#include <DiskArbitration/DiskArbitration.h>

struct __DADisk {  // NOLINT(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)
    Object object;
    Identity identity;
    char link[kLabelMax + 1];   // the name of its link
    char label[kLabelMax + 1];  // what that stands for
    char *node;                 // the path that the link led to: what is mounted
    DADiskOptions options;
    uint64_t arrival;        // its number among the arrivals
    bool offered;            // nothing is left to be done about its arrival
    bool gone;               // it is not there any more
    bool seen;               // the look under way has found it
    int nodeWatch;           // while its link leads to another disk: the watch on its node, or -1
    char place[kPlaceSize];  // where this layer has mounted it; empty if it has not
    __DADisk *next;
};

// Begins to watch: the disks that are there now are known and no arrivals; what an earlier process
// left mounted of disks that are not there any more is unmounted. False when memory runs out.
bool StartWatchingDisks();

// Ends it and forgets all disks.
void StopWatchingDisks();

bool AreDisksWatched();

// Brings the list of disks up to date.
void LookForDisks();

// The number of the latest arrival; a disk that arrives later has a greater one.
uint64_t LatestArrival();

// The earliest disk that is there and has not been offered; null if there is none.
DADiskRef NextArrival();

// Makes the run loop offer what has arrived, start what is asked for and deliver what is done.
void SignalWork();

#endif
