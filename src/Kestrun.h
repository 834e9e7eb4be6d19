// Kestrun.h - what the daemon does: at start-up, when the modem's disk arrives, once it is mounted.
//
// The daemon has one thread. `main` performs the start-up pass, schedules the disk arbitration
// session on its run loop and runs that loop for the rest of the process; both callbacks below are
// called from it, one at a time. Nothing here is safe to call from two threads at once.
#ifndef SRC_KESTRUN_H
#define SRC_KESTRUN_H

#include <CoreFoundation/CoreFoundation.h>
#include <DiskArbitration/DiskArbitration.h>

#include <stddef.h>

// The options of every mount that the daemon asks for: one option, "nobrowse" or "rdonly", and the
// null that ends the list. Both are null until `main` has read the configuration; the strings are
// constants that nobody releases.
extern CFStringRef gMountArgs[2];

// Looks for a serial port whose callout device path contains `namePart` (case-sensitive, anywhere
// in it). 0 when there is one; -1 when there is none, when the ports cannot be listed or when
// `namePart` is null.
//
// `outPath`, a buffer of `outSize` bytes, may be null and `outSize` 0 or less: then nothing is
// written. Otherwise every path that is examined is copied there in turn, cut to `outSize` - 1
// bytes and terminated: in the end it holds the matching path or, after a search that failed, the
// last one examined. It is unchanged when no port was examined.
int FindCommPort(const char *namePart, char *outPath, int outSize);

// Called by the disk arbitration service for a disk that has just arrived and has the configured
// name: switches off its automatic mount and requests a mount with `gMountArgs`. The service
// reports the end of the mount to `DiskMountCallback`, normally later from the run loop; then this
// does not block. A mount that the service refuses at once is reported before the request returns;
// then this takes as long as `DiskMountCallback`. The service keeps `disk`; `context` is not used.
void DiskPeekCallback(DADiskRef disk, void *context);

// Builds the command that opens the application at `path`, in double quotes, in `command`, a buffer
// of kOpenCommandSize bytes: at most 511 bytes and a terminator. A path of more than 501 bytes is
// cut to 502, and the closing quote is missing then.
static constexpr size_t kOpenCommandSize = 512;
void BuildOpenCommand(const char *path, char *command);

// The actions after a mount, which `main` also runs once itself for a modem that is there at
// start-up: if the user of the daemon owns the console, waits (for ever) until the Finder runs,
// opens the connection manager and calls `DiskMountApproval`. The arguments are ignored and may be
// null: a mount that failed is followed by the same actions. Returns only when they are done.
void DiskMountCallback(DADiskRef disk, DADissenterRef dissenter, void *context);

// Runs the one-time setup package that the installed application's "SysConfig.dat" asks for. 0 when
// it ran, -1 when it failed or nothing was asked for.
int DiskMountApproval();

#endif
