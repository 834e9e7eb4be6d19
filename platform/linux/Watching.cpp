// Watching.cpp - the watch on the folder of labels, by inotify(7).
//
// udev removes the folder with its last link, then its parent, and makes new ones later. So the
// watch is set anew before each look: on the same folder the kernel gives the same watch again, on
// a new one a new watch takes the place of the old. The events themselves are not read: a queue
// that ran over has lost them, and a look finds all that stands anyway.

#include "Watching.h"

#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/inotify.h>
#include <unistd.h>

// The folder and its parents, up to one that is always there.
static constexpr const char *kFolders[] = {LABELS_FOLDER, "/dev/disk", "/dev", "/"};
static constexpr size_t kFolderCount = sizeof kFolders / sizeof kFolders[0];

static constexpr uint32_t kGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// udev makes each link by a rename, and may only touch one that is as it should be.
static constexpr uint32_t kLabelEvents =
    IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ATTRIB | kGone;
static constexpr uint32_t kParentEvents = IN_CREATE | IN_MOVED_TO | kGone;

// A node that is removed changes its number of links at once.
static constexpr uint32_t kNodeEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_ATTRIB;

// The folders may come faster than the watch goes down; then it is set again later.
static constexpr int kTries = 16;

static constexpr int kNone = -1;

static int g_watch = kNone;        // the inotify instance
static int g_folderWatch = kNone;  // its watch on one of kFolders

int OpenWatch()
{
    if (g_watch < 0)
        g_watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    return g_watch;
}

void CloseWatch()
{
    if (g_watch >= 0)
        close(g_watch);
    g_watch = kNone;
    g_folderWatch = kNone;
}

void DrainWatch()
{
    alignas(inotify_event) char events[4096];
    while (g_watch >= 0 && read(g_watch, events, sizeof events) > 0) {
    }
}

static void ReplaceFolderWatch(int watch)
{
    if (watch == g_folderWatch)
        return;
    if (g_folderWatch >= 0)
        inotify_rm_watch(g_watch, g_folderWatch);  // fails if it went with its folder
    g_folderWatch = watch;
}

// Sets the watch on the first of kFolders that is there. Its index, kFolderCount on a failure.
static size_t WatchFirstFolder()
{
    for (size_t i = 0; i < kFolderCount; i++) {
        const int watch =
            inotify_add_watch(g_watch, kFolders[i], i == 0 ? kLabelEvents : kParentEvents);
        if (watch >= 0) {
            ReplaceFolderWatch(watch);
            return i;
        }
        if (errno != ENOENT && errno != ENOTDIR)
            return kFolderCount;
    }
    return kFolderCount;
}

bool WatchLabels()
{
    if (OpenWatch() < 0)
        return false;
    for (int i = 0; i < kTries; i++) {
        const size_t folder = WatchFirstFolder();
        if (folder == 0)
            return true;
        if (folder == kFolderCount)
            return false;
        // The next folder may have been made before the watch on its parent was there to see it.
        if (access(kFolders[folder - 1], F_OK) != 0)
            return true;
    }
    return false;
}

int WatchNode(const char *path)
{
    return g_watch < 0 ? kNone : inotify_add_watch(g_watch, path, kNodeEvents);
}

void UnwatchNode(int watch)
{
    if (g_watch >= 0 && watch >= 0)
        inotify_rm_watch(g_watch, watch);
}
