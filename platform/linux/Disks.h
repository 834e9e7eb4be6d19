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
    char link[kLabelMax + 1];     // the name of its link
    char label[kLabelMax + 1];    // what that stands for
    char *node;                   // the path that the link led to: what is mounted
    CFDictionaryRef description;  // what match dictionaries are compared with; one reference
    DADiskOptions options;
    uint64_t arrival;        // its number among what has happened; 0 if it was there before
    int64_t arrivedAt;       // MonotonicTime, as far as the link's age tells
    bool offered;            // nothing is left to be done about its arrival
    bool gone;               // it is not there any more
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

// True where the layer stands for the whole service: it mounts disks by itself too, and a disk that
// nobody answers for in time is not offered any more.
bool StandsForService();

// Arrivals and completions are numbered as they happen, and told in that order: the number of the
// next one, and of the latest.
uint64_t NumberNextEvent();
uint64_t LatestEvent();

// The disk that arrived first of those that have not been offered; null if there is none.
DADiskRef NextArrival();

// MonotonicTime at which the first of the disks came that have not been offered. False if there are
// none.
bool FirstArrivalTime(int64_t *arrivedAt);

// Makes the run loop offer what has arrived, start what is asked for and deliver what is done.
void SignalWork();

#endif
