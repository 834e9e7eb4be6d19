// Dissenters.cpp - why a mount request failed.

#include "Dissenters.h"

#include "Children.h"
#include "Runtime.h"

#include <errno.h>
#include <stdlib.h>

struct __DADissenter {  // NOLINT(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)
    Object object;
    DAReturn status;
};

static void DestroyDissenter(Object *object)
{
    free(object);
}

static constexpr ObjectType kDissenterType = {DestroyDissenter, nullptr, nullptr};

static constexpr __DADissenter kNoMemory = {{&kDissenterType, kImmortal}, kDAReturnNoResources};

DADissenterRef CreateDissenter(DAReturn status)
{
    if (status == kDAReturnSuccess)
        return nullptr;
    __DADissenter *dissenter =
        static_cast<__DADissenter *>(NewObject(&kDissenterType, sizeof(__DADissenter)));
    if (dissenter == nullptr)
        return &kNoMemory;
    dissenter->status = status;
    return dissenter;
}

DAReturn DADissenterGetStatus(DADissenterRef dissenter)
{
    return dissenter == nullptr ? kDAReturnSuccess : dissenter->status;
}

DAReturn StatusOfErrno(int error)
{
    switch (error) {
    case EBUSY: return kDAReturnBusy;
    case EINVAL: return kDAReturnBadArgument;
    case ENOENT: return kDAReturnNotFound;
    case EPERM: return kDAReturnNotPermitted;
    default: return unix_err(error);
    }
}

DAReturn StatusOfMount(int status)
{
    switch (status) {
    case 0: return kDAReturnSuccess;
    case 1: return StatusOfErrno(EPERM);   // called wrongly, or without the right to mount
    case 2: return StatusOfErrno(ENOMEM);  // no memory, no process, no loop device
    case kNotRunStatus: return StatusOfErrno(ENOEXEC);
    default: return StatusOfErrno(status > kNotRunStatus ? EINTR : EIO);
    }
}
