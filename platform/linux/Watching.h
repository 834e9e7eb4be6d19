// Watching.h - the watch on the folder of labels, wherever it comes and goes.
#ifndef PLATFORM_LINUX_WATCHING_H
#define PLATFORM_LINUX_WATCHING_H

// The folder with a link for each label.
#define LABELS_FOLDER "/dev/disk/by-label"

// A descriptor that can be read when something has changed since DrainWatch; -1 when the kernel has
// none to give. It stays the same until CloseWatch.
int OpenWatch();

// Closes it, and with it every watch.
void CloseWatch();

// Takes what can be read away. What changed is found by looking.
void DrainWatch();

// Sets the watch on the folder of labels or, while there is none, on its nearest parent, so that
// every change after the call can be read. To be called before each look into the folder. False
// when the kernel has no watch to give: changes may then be missed.
bool WatchLabels();

// Watches what path leads to, to see it go; -1 if that is not possible. UnwatchNode takes the watch
// away; -1 is ignored.
int WatchNode(const char *path);
void UnwatchNode(int watch);

#endif
