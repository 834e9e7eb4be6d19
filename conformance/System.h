// System.h - what the checks need of the system that they run on, one source a system: disk images
// of their own that come and go, and what the kernel says about a mount.
#ifndef CONFORMANCE_SYSTEM_H
#define CONFORMANCE_SYSTEM_H

#include <string>

namespace conformance
{

// How long a disk takes to come or to go, and everything to settle after that, in seconds.
extern const double kSettled;

// What a run does to this system, in one sentence, for the question that is asked first.
extern const char kWhatIsDone[];

// The system and its version, and what answers for the frameworks.
std::string SystemVersion();

// Makes the calling process ready to attach disks; `folder` is an empty one, for images. False with
// one line in `why`, remedy included: nothing was changed then.
bool EnterSystem(const std::string &folder, std::string *why);

// Detaches whatever a process that entered with this folder has left attached, and removes the
// folder. Called by another process, after that one's end.
void CleanUp(const std::string &folder);

// Makes a disk image with a file system labelled `label` and begins to attach it: the disk arrives
// while the run loop runs. The system mounts it by itself when nobody does. False with one line in
// `why`.
bool Attach(const std::string &label, std::string *why);

// Detaches the disk, mounted or not. Returns when that is done or, at the latest, after 3 seconds.
void Detach(const std::string &label);

// How the disk of that label is mounted at its place under /Volumes.
struct MountState {
    bool mounted = false;
    bool readOnly = false;
    bool hidden = false;  // from people who browse
};
MountState MountOf(const std::string &label);

// Plugs a serial port in and returns its callout path; empty where ports cannot be made.
std::string PlugPort();

}  // namespace conformance

#endif
