#include "benchmarks/peers/safec.h"

#include "benchmarks/harness.h"

#include <dlfcn.h>

const SafecTable *Safec()
{
#ifdef SAFEC_OBJECT
    static const SafecTable *table = nullptr;
    if (table != nullptr)
        return table;
    if (void *object = dlopen(SAFEC_OBJECT, RTLD_NOW | RTLD_LOCAL))
        table = static_cast<const SafecTable *>(dlsym(object, "kSafecTable"));
    if (table == nullptr)
        LeaveOut("libsafec", dlerror());
    return table;
#else
    LeaveOut("libsafec", "libsafec-dev is not installed");
    return nullptr;
#endif
}
