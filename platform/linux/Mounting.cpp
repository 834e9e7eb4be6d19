// Mounting.cpp - mount requests, one after the other for each disk, and unmounts.
//
// A request waits until those made before it for the same disk are done, and until nothing is on its
// way out of the place where it would go: a disk that replaces another finds its name free.
// The mount and umount programs are given argument vectors; a label is a stranger's text and never
// meets a shell. Success is the exit status.

#include "Mounting.h"

#include "Children.h"
#include "MountPoints.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static constexpr char kAlways[] = "nosuid,nodev";

// A place may have been mounted over; it is unmounted this often at most.
static constexpr int kUnmountTries = 16;

enum class Stage { Waiting, Running, Done };

struct MountRequest {
    DADiskRef disk;  // one reference
    DADiskMountCallback callback;
    void *context;
    char *options;  // for mount -o, but for what the kind of the disk needs
    Stage stage;
    DAReturn status;         // Done: kDAReturnSuccess, or what the dissenter says
    char place[kPlaceSize];  // Running
    Child child;             // Running: mount
    MountRequest *next;
};

// Something that is to be unmounted, and its folder removed.
struct Unmount {
    char place[kPlaceSize];
    dev_t device;    // of the disk, or of the mount that was found
    DADiskRef disk;  // whose it is, one reference; null for what an earlier process left
    bool running;    // false: it could not be unmounted
    int tries;
    Child child;  // umount
    Unmount *next;
};

static MountRequest *g_requests = nullptr;  // in the order in which they were made
static Unmount *g_unmounts = nullptr;

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

// ---- Unmounts ----

static Unmount *FindUnmount(const char *place)
{
    for (Unmount *unmount = g_unmounts; unmount != nullptr; unmount = unmount->next) {
        if (strcmp(unmount->place, place) == 0)
            return unmount;
    }
    return nullptr;
}

static void ForgetUnmount(Unmount *unmount)
{
    Unmount **at = &g_unmounts;
    while (*at != unmount)
        at = &(*at)->next;
    *at = unmount->next;
    Release(unmount->disk);
    free(unmount);
}

static void StartUnmount(Unmount *unmount);

// Where the disk, which is gone, is mounted still. What others have mounted is theirs as long as the
// device is there; a folder or an image has none but its link.
static Found FindPlaceLeft(const __DADisk *disk, char *place, size_t size)
{
    const Identity &identity = disk->identity;
    const bool anybodys = identity.kind != DiskKind::Block || !IsDeviceThere(identity.device);
    return FindPlaceOf(identity, anybodys, place, size);
}

// Others may have been quicker: what counts is whether anything is mounted there still. A disk that
// is mounted at a second place is unmounted from there too.
static void UnmountHasEnded(Child *child, int status)
{
    Unmount *unmount = static_cast<Unmount *>(child->owner);
    unmount->running = false;
    const bool stands = IsMountPoint(unmount->place) == Found::Yes;
    if (stands && status == 0 && ++unmount->tries < kUnmountTries) {
        StartUnmount(unmount);
        return;
    }
    if (!stands) {
        rmdir(unmount->place);
        char other[kPlaceSize];
        if (unmount->disk != nullptr && unmount->tries < kUnmountTries &&
            FindPlaceLeft(unmount->disk, other, sizeof other) == Found::Yes &&
            FindUnmount(other) == nullptr) {
            memcpy(unmount->place, other, sizeof unmount->place);
            unmount->tries++;
            StartUnmount(unmount);
            return;
        }
        ForgetUnmount(unmount);
    }
    ProceedWithMounts();
}

// A program that cannot be started leaves the place to a later look.
static void StartUnmount(Unmount *unmount)
{
    const char *const argv[] = {"umount", "-l", "--", unmount->place, nullptr};
    unmount->running = StartChild(&unmount->child, argv, UnmountHasEnded, unmount);
}

static void AddUnmount(const char *place, dev_t device, DADiskRef disk)
{
    if (FindUnmount(place) != nullptr)
        return;
    Unmount *unmount = static_cast<Unmount *>(calloc(1, sizeof *unmount));
    if (unmount == nullptr)
        return;
    snprintf(unmount->place, sizeof unmount->place, "%s", place);
    unmount->device = device;
    unmount->disk = disk;
    if (disk != nullptr)
        CFRetain(disk);
    unmount->next = g_unmounts;
    g_unmounts = unmount;
    StartUnmount(unmount);
}

static bool IsBeingMounted(const __DADisk *disk)
{
    for (const MountRequest *request = g_requests; request != nullptr; request = request->next) {
        if (request->disk == disk && request->stage == Stage::Running)
            return true;
    }
    return false;
}

void UnmountDisk(DADiskRef disk)
{
    if (IsBeingMounted(disk))
        return;
    if (disk->place[0] == '\0' &&
        FindPlaceLeft(disk, disk->place, sizeof disk->place) != Found::Yes)
        return;
    AddUnmount(disk->place, disk->identity.device, disk);
    disk->place[0] = '\0';
}

void UnmountLeftover(const char *place, dev_t device)
{
    AddUnmount(place, device, nullptr);
}

void RetryUnmounts()
{
    for (Unmount *unmount = g_unmounts; unmount != nullptr; unmount = unmount->next) {
        if (unmount->running)
            continue;
        unmount->tries = 0;
        StartUnmount(unmount);
    }
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
    for (const Unmount *unmount = g_unmounts; unmount != nullptr; unmount = unmount->next) {
        if (unmount->disk != nullptr && SameIdentity(unmount->disk->identity, disk))
            return true;
    }
    for (const MountRequest *request = g_requests; request != nullptr; request = request->next) {
        if (request->stage == Stage::Running && SameIdentity(request->disk->identity, disk))
            return true;
    }
    return false;
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
        AddUnmount(request->place, disk->identity.device, disk);
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

// Runs mount for the request, whose place has been made.
static bool RunMount(MountRequest *request)
{
    const char *kind = KindOptions(request->disk->identity.kind);
    const size_t size = strlen(kind) + strlen(request->options) + 1;
    char *options = static_cast<char *>(malloc(size));
    if (options == nullptr)
        return false;
    snprintf(options, size, "%s%s", kind, request->options);
    const char *const argv[] = {"mount",        "-o",   options, "--", request->disk->node,
                                request->place, nullptr};
    const bool started = StartChild(&request->child, argv, MountHasEnded, request);
    free(options);
    return started;
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
    const int error = TakePlace(disk->label, request->place, sizeof request->place);
    if (error != 0) {
        Finish(request, StatusOfErrno(error));
        return;
    }
    request->stage = Stage::Running;
    if (RunMount(request))
        return;
    rmdir(request->place);
    Finish(request, kDAReturnError);
}

// True while something is on its way out of the disk's place, or of its device: what is being
// unmounted, and the mount of a disk that has gone.
static bool MustWaitForPlace(const __DADisk *disk)
{
    char place[kPlaceSize];
    PlaceName(disk->label, 0, place, sizeof place);
    for (const Unmount *unmount = g_unmounts; unmount != nullptr; unmount = unmount->next) {
        if (unmount->running &&
            (unmount->device == disk->identity.device || strcmp(unmount->place, place) == 0))
            return true;
    }
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
