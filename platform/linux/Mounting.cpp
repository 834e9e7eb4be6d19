// Mounting.cpp - mount requests, one after the other for each disk.
//
// A request waits until those made before it for the same disk are done, and until nothing is on
// its way out of the place where it would go: a disk that replaces another finds its name free. The
// mount program is given an argument vector; a label is a stranger's text and never meets a shell.
// Success is the exit status.

#include "Mounting.h"

#include "Children.h"
#include "Dissenters.h"
#include "FileSystems.h"
#include "MountPoints.h"
#include "Unmounting.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

// What complaints about a request are headed by.
static constexpr char kFunction[] = "DADiskMountWithArguments";

// The name of a file system's type, and the line's end behind it. What is longer is none that is
// mounted.
static constexpr size_t kTypeSize = 32;

static constexpr char kAlways[] = "nosuid,nodev";

enum class Stage { Waiting, Running, Done };

struct MountRequest {
    DADiskRef disk;  // one reference
    DADiskMountCallback callback;
    void *context;
    char *options;  // for mount -o, but for what the kind of the disk needs
    Stage stage;
    DAReturn status;         // Done: kDAReturnSuccess, or what the dissenter says
    uint64_t number;         // Done: its number among what has happened
    char place[kPlaceSize];  // Running: while mount runs; empty before
    Child child;             // Running: blkid, then mount
    int output;              // what blkid prints
    MountRequest *next;
};

static MountRequest *g_requests = nullptr;  // in the order in which they were made

// ---- What is under way ----

bool IsBeingMounted(DADiskRef disk)
{
    for (const MountRequest *request = g_requests; request != nullptr; request = request->next) {
        if (request->disk == disk && request->stage == Stage::Running)
            return true;
    }
    return false;
}

bool IsMounting()
{
    for (const MountRequest *request = g_requests; request != nullptr; request = request->next) {
        if (request->stage == Stage::Running)
            return true;
    }
    return false;
}

bool IsInUse(const Identity &disk)
{
    for (const MountRequest *request = g_requests; request != nullptr; request = request->next) {
        if (request->stage == Stage::Running && SameIdentity(request->disk->identity, disk))
            return true;
    }
    return IsBeingUnmounted(disk);
}

// ---- Options ----

// The mount options that an argument stands for.
static const char *OptionsOfArgument(const char *argument)
{
    if (strcmp(argument, "rdonly") == 0)
        return "ro,x-gvfs-show";
    if (strcmp(argument, "nobrowse") == 0)
        return "x-gvfs-hide";
    return argument;
}

// Adds a comma and the option to the list, which is malloc'ed; null, with the list freed, when
// memory runs out or has run out before.
static char *AddOption(char *list, const char *option)
{
    if (list == nullptr || *option == '\0')
        return list;
    const size_t length = strlen(list);
    const size_t size = length + 1 + strlen(option) + 1;
    char *longer = static_cast<char *>(realloc(list, size));
    if (longer == nullptr) {
        free(list);
        return nullptr;
    }
    snprintf(longer + length, size - length, ",%s", option);
    return longer;
}

// The options of a request, malloc'ed; null when memory runs out. The layer's own stand before the
// caller's.
static char *MakeOptions(CFStringRef const arguments[])
{
    char *list = strdup(kAlways);
    for (size_t i = 0; arguments != nullptr && arguments[i] != nullptr; i++)
        list = AddOption(list, OptionsOfArgument(StringText(arguments[i])));
    return list;
}

// ---- Requests ----

static void FreeRequest(MountRequest *request)
{
    Release(request->disk);
    free(request->options);
    free(request);
}

static void Finish(MountRequest *request, DAReturn status)
{
    request->stage = Stage::Done;
    request->status = status;
    request->number = NumberNextEvent();
    SignalWork();
}

void CompleteMount(DADiskRef disk, DADiskMountCallback callback, void *context, DAReturn status)
{
    if (callback == nullptr)
        return;
    DADissenterRef dissenter = CreateDissenter(status);
    callback(disk, dissenter, context);
    Release(dissenter);
}

// Puts a new request before the one at `at`. False when memory runs out.
static bool AddRequest(MountRequest **at, DADiskRef disk, DADiskMountCallback callback,
                       void *context, CFStringRef const arguments[])
{
    MountRequest *request = static_cast<MountRequest *>(calloc(1, sizeof *request));
    char *options = request == nullptr ? nullptr : MakeOptions(arguments);
    if (options == nullptr) {
        free(request);
        return false;
    }
    request->disk = disk;
    CFRetain(disk);
    request->callback = callback;
    request->context = context;
    request->options = options;
    request->next = *at;
    *at = request;
    SignalWork();
    return true;
}

void RequestMount(DADiskRef disk, DADiskMountCallback callback, void *context,
                  CFStringRef const arguments[])
{
    MountRequest **end = &g_requests;
    while (*end != nullptr)
        end = &(*end)->next;
    if (!AddRequest(end, disk, callback, context, arguments))
        CompleteMount(disk, callback, context, kDAReturnNoResources);
}

void RequestAutomaticMount(DADiskRef disk, bool first)
{
    MountRequest **at = &g_requests;
    while (*at != nullptr && !(first && (*at)->disk == disk && (*at)->stage == Stage::Waiting))
        at = &(*at)->next;
    AddRequest(at, disk, nullptr, nullptr, nullptr);
}

// The exit status says it; where somebody else took the status, the mount itself does.
static bool HasMounted(const MountRequest *request, int status)
{
    if (status == kStatusUnknown)
        return IsMountPoint(request->place) == Found::Yes;
    return status == 0;
}

static void MountHasEnded(Child *child, int status)
{
    MountRequest *request = static_cast<MountRequest *>(child->owner);
    DADiskRef disk = request->disk;
    const bool mounted = HasMounted(request, status);
    // A program that fails may have mounted all the same: then there is something to unmount.
    const bool stands = mounted || (rmdir(request->place) != 0 && errno == EBUSY);
    Finish(request, mounted ? kDAReturnSuccess : StatusOfMount(status));
    if (mounted)
        memcpy(disk->place, request->place, sizeof disk->place);
    else if (stands)
        UnmountPlace(request->place, disk->identity.device, disk);
    if (disk->gone)
        UnmountDisk(disk);
    ProceedWithMounts();
}

// What the kind of a disk needs before the other options.
static const char *KindOptions(DiskKind kind)
{
    switch (kind) {
    case DiskKind::Folder: return "bind,";
    case DiskKind::Image: return "loop,";
    case DiskKind::Block: break;
    }
    return "";
}

// Runs mount for the request, whose place has been made. A folder has no type of its own.
static bool RunMount(MountRequest *request, const char *type, const char *typeOptions)
{
    const char *kind = KindOptions(request->disk->identity.kind);
    const char *comma = *typeOptions == '\0' ? "" : ",";
    char *options = nullptr;
    if (asprintf(&options, "%s%s%s%s", kind, typeOptions, comma, request->options) < 0)
        return false;
    const char *node = request->disk->node;
    const char *const bind[] = {"mount", "-o", options, "--", node, request->place, nullptr};
    const char *const typed[] = {"mount", "-t", type,           "-o",   options,
                                 "--",    node, request->place, nullptr};
    const bool started =
        StartChild(&request->child, type == nullptr ? bind : typed, -1, MountHasEnded, request);
    free(options);
    return started;
}

static void StartMount(MountRequest *request, const char *type, const char *typeOptions)
{
    const int error = TakePlace(request->disk->label, request->place, sizeof request->place);
    if (error != 0) {
        Finish(request, StatusOfErrno(error));
        return;
    }
    request->stage = Stage::Running;
    if (RunMount(request, type, typeOptions))
        return;
    const int reason = errno;
    rmdir(request->place);
    Finish(request, StatusOfErrno(reason));
}

// The type is judged before the kernel reads anything of the disk.
static void ProbeHasEnded(Child *child, int status)
{
    MountRequest *request = static_cast<MountRequest *>(child->owner);
    char type[kTypeSize] = "";
    const ssize_t length = pread(request->output, type, sizeof type - 1, 0);
    close(request->output);
    type[strcspn(type, "\n")] = '\0';
    const char *node = request->disk->node;
    const char *options = OptionsOfFileSystem(type);
    if (request->disk->gone) {
        Finish(request, kDAReturnNotFound);
    } else if (options != nullptr) {
        StartMount(request, type, options);
    } else {
        if (length > 0)
            Complain(kFunction, "%s is not mounted: it holds %s, and only %s are mounted", node,
                     type, kMountedFileSystems);
        else if (status == kNotRunStatus)
            Complain(kFunction, "%s is not mounted: blkid, which tells its type, cannot be run",
                     node);
        else
            Complain(kFunction, "%s is not mounted: it holds no file system that blkid knows",
                     node);
        Finish(request, kDAReturnUnsupported);
    }
    ProceedWithMounts();
}

// Asks blkid, which does it as mount would, for the type of the disk's file system.
static void StartProbe(MountRequest *request)
{
    request->output = memfd_create("blkid", MFD_CLOEXEC);
    if (request->output < 0) {
        Finish(request, StatusOfErrno(errno));
        return;
    }
    const char *const argv[] = {"blkid", "-p",    "-u", "filesystem",        "-s",   "TYPE",
                                "-o",    "value", "--", request->disk->node, nullptr};
    request->stage = Stage::Running;
    if (StartChild(&request->child, argv, request->output, ProbeHasEnded, request))
        return;
    const int error = errno;
    close(request->output);
    Finish(request, StatusOfErrno(error));
}

static void StartRequest(MountRequest *request)
{
    DADiskRef disk = request->disk;
    if (disk->gone) {
        Finish(request, kDAReturnNotFound);
        return;
    }
    const Found mounted = IsMounted(disk->identity);
    if (mounted != Found::No) {
        Finish(request, mounted == Found::Yes ? kDAReturnBusy : StatusOfErrno(errno));
        return;
    }
    if (disk->identity.kind == DiskKind::Folder)
        StartMount(request, nullptr, "");
    else
        StartProbe(request);
}

// True while something is on its way out of the disk's place, or of its device: what is being
// unmounted, and the mount of a disk that has gone.
static bool MustWaitForPlace(const __DADisk *disk)
{
    char place[kPlaceSize];
    PlaceName(disk->label, 0, place, sizeof place);
    if (IsOnItsWayOut(disk->identity.device, place))
        return true;
    for (const MountRequest *request = g_requests; request != nullptr; request = request->next) {
        if (request->stage == Stage::Running && request->disk->gone &&
            strcmp(request->place, place) == 0)
            return true;
    }
    return false;
}

// True if a request for the same disk or another part of it, made before this one, is not done yet.
static bool MustWaitForRequest(const MountRequest *request)
{
    for (const MountRequest *other = g_requests; other != request; other = other->next) {
        if (other->stage != Stage::Done && SameUnit(other->disk->identity, request->disk->identity))
            return true;
    }
    return false;
}

void ProceedWithMounts()
{
    for (MountRequest *request = g_requests; request != nullptr; request = request->next) {
        if (request->stage == Stage::Waiting && !MustWaitForRequest(request) &&
            !MustWaitForPlace(request->disk))
            StartRequest(request);
    }
}

// Where the request stands that was done first; null if none is done.
static MountRequest **FirstDone()
{
    MountRequest **first = nullptr;
    for (MountRequest **at = &g_requests; *at != nullptr; at = &(*at)->next) {
        if ((*at)->stage == Stage::Done && (first == nullptr || (*at)->number < (*first)->number))
            first = at;
    }
    return first;
}

uint64_t FirstCompletion()
{
    MountRequest **first = FirstDone();
    return first == nullptr ? 0 : (*first)->number;
}

void DeliverCompletion()
{
    MountRequest **first = FirstDone();
    MountRequest *request = *first;
    *first = request->next;
    CompleteMount(request->disk, request->callback, request->context, request->status);
    FreeRequest(request);
}
