// Suspects.cpp - names of links that udev is about to change.
//
// udev makes a link under a name of a certain form and renames it. A label may look so too: what
// stands for a while is one.

#include "Suspects.h"

#include "Labels.h"
#include "Runtime.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// A name that stands as long as this is a true one. udev's live under 10 ms.
static constexpr int64_t kTemporaryMs = 1000;

struct Suspect {
    char name[kLabelMax + 1];
    int64_t since;  // MonotonicTime of the first look that found it
    bool wasThere;  // when watching began
    bool seen;      // the look under way has found it
    Suspect *next;
};

static Suspect *g_suspects = nullptr;

static Suspect *FindSuspect(const char *name)
{
    for (Suspect *suspect = g_suspects; suspect != nullptr; suspect = suspect->next) {
        if (strcmp(suspect->name, name) == 0)
            return suspect;
    }
    return nullptr;
}

int64_t SuspicionLeft(const char *name, bool wasThere)
{
    if (!IsTemporaryName(name))
        return 0;
    Suspect *suspect = FindSuspect(name);
    if (suspect == nullptr) {
        suspect = static_cast<Suspect *>(calloc(1, sizeof *suspect));
        if (suspect == nullptr)
            return kTemporaryMs;
        snprintf(suspect->name, sizeof suspect->name, "%s", name);
        suspect->since = MonotonicTime();
        suspect->wasThere = wasThere;
        suspect->next = g_suspects;
        g_suspects = suspect;
    }
    suspect->seen = true;
    const int64_t left = suspect->since + kTemporaryMs - MonotonicTime();
    return left > 0 ? left : 0;
}

bool WasSuspectThere(const char *name)
{
    const Suspect *suspect = FindSuspect(name);
    return suspect != nullptr && suspect->wasThere;
}

void ForgetSuspects(bool all)
{
    Suspect **at = &g_suspects;
    while (*at != nullptr) {
        Suspect *suspect = *at;
        if (!all && suspect->seen) {
            suspect->seen = false;
            at = &suspect->next;
            continue;
        }
        *at = suspect->next;
        free(suspect);
    }
}
