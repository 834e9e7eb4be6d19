// Mounting.cpp - mount requests, one after the other for each disk.
//
// A request waits until those made before it for the same disk are done, and until nothing is on its
// way out of the place where it would go: a disk that replaces another finds its name free.
// The mount program is given an argument vector; a label is a stranger's text and never meets a
// shell. Success is the exit status.

#include "Mounting.h"

#include "Children.h"
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
    char place[kPlaceSize];  // Running: while mount runs; empty before
    Child child;             // Running: blkid, then mount
    int output;              // what blkid prints
    MountRequest *next;
};

static MountRequest *g_requests = nullptr;  // in the order in which they were made

// ---- Dissenters ----

struct __DADissenter {  // NOLINT(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)
    Object object;
    DAReturn status;
};

static constexpr ObjectType kDissenterType = {nullptr, nullptr, nullptr};

// There is one dissenter for each reason, and it is never freed.
static constexpr __DADissenter kDissenters[] = {
    {{&kDissenterType, kImmortal}, kDAReturnError},
    {{&kDissenterType, kImmortal}, kDAReturnBusy},
    {{&kDissenterType, kImmortal}, kDAReturnNoResources},
    {{&kDissenterType, kImmortal}, kDAReturnNotFound},
    {{&kDissenterType, kImmortal}, kDAReturnNotPermitted},
    {{&kDissenterType, kImmortal}, kDAReturnUnsupported},
};

static DADissenterRef DissenterOf(DAReturn status)
{
    if (status == kDAReturnSuccess)
        return nullptr;
    for (const __DADissenter &dissenter : kDissenters) {
        if (dissenter.status == status)
            return &dissenter;
    }
    return &kDissenters[0];
}

DAReturn DADissenterGetStatus(DADissenterRef dissenter)
{
    return dissenter == nullptr ? kDAReturnSuccess : dissenter->status;
}

static DAReturn StatusOfErrno(int error)
{
    if (error == ENOMEM || error == EMFILE || error == ENFILE || error == ENOSPC)
        return kDAReturnNoResources;
    if (error == EACCES || error == EPERM || error == EROFS)
        return kDAReturnNotPermitted;
    return kDAReturnError;
}

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

// The options of a request, malloc'ed; null when memory runs out. Of options that contradict each
// other the last one holds, so those that are never left out come once more behind a stranger's.
static char *MakeOptions(CFStringRef const arguments[])
{
    char *list = strdup(kAlways);
    bool strange = false;
    for (size_t i = 0; arguments != nullptr && arguments[i] != nullptr; i++) {
        const char *argument = StringText(arguments[i]);
        const char *options = OptionsOfArgument(argument);
        strange = strange || options == argument;
        list = AddOption(list, options);
    }
    return strange ? AddOption(list, kAlways) : list;
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
    SignalWork();
}

void RequestMount(DADiskRef disk, DADiskMountCallback callback, void *context,
                  CFStringRef const arguments[], DAReturn refusal)
{
    MountRequest *request = static_cast<MountRequest *>(calloc(1, sizeof *request));
    char *options = request == nullptr ? nullptr : MakeOptions(arguments);
    if (options == nullptr) {
        free(request);
        if (callback != nullptr)
            callback(disk, DissenterOf(kDAReturnNoResources), context);
        return;
    }
    request->disk = disk;
    CFRetain(disk);
    request->callback = callback;
    request->context = context;
    request->options = options;
    MountRequest **end = &g_requests;
    while (*end != nullptr)
        end = &(*end)->next;
    *end = request;
    if (refusal != kDAReturnSuccess)
        Finish(request, refusal);
    SignalWork();
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
    Finish(request, disk->gone ? kDAReturnNotFound : mounted ? kDAReturnSuccess : kDAReturnError);
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
    rmdir(request->place);
    Finish(request, kDAReturnError);
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
    close(request->output);
    Finish(request, kDAReturnError);
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
        Finish(request, mounted == Found::Yes ? kDAReturnBusy : kDAReturnNoResources);
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

// True if a request for the same disk, made before this one, is not done yet.
static bool MustWaitForRequest(const MountRequest *request)
{
    for (const MountRequest *other = g_requests; other != request; other = other->next) {
        if (other->disk == request->disk && other->stage != Stage::Done)
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

bool IsCompletionDue()
{
    for (const MountRequest *request = g_requests; request != nullptr; request = request->next) {
        if (request->stage == Stage::Done)
            return true;
    }
    return false;
}

bool DeliverCompletion()
{
    MountRequest **at = &g_requests;
    while (*at != nullptr && (*at)->stage != Stage::Done)
        at = &(*at)->next;
    MountRequest *request = *at;
    if (request == nullptr)
        return false;
    *at = request->next;
    if (request->callback != nullptr)
        request->callback(request->disk, DissenterOf(request->status), request->context);
    FreeRequest(request);
    return true;
}
