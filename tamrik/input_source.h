// The sources of formatted input: what a scan asks of them beside _inc, which tamrik.h declares.
//
// Sources know no formats. Functions that another source of the library calls have C linkage and
// the library's prefix: so no name of a program that links it can meet theirs, and the objects need
// nothing of C++.
#ifndef TAMRIK_INPUT_SOURCE_H
#define TAMRIK_INPUT_SOURCE_H

#include "tamrik/tamrik.h"

// The bits of InputSource.kind.
enum SourceKind {
    kString = 0x1,
    kFile = 0x2,
    kStandardInput = 0x4,
    kLoaded = 0x8,        // a block of the file has been read
    kMarkSkipped = 0x10,  // the file began with a byte-order mark
};

static inline bool IsPlainString(const InputSource *source)
{
    return (source->kind & (kFile | kStandardInput)) == 0;
}

static inline bool IsUsable(const InputSource *source)
{
    if (IsPlainString(source))
        return (source->kind & kString) && (source->cur != nullptr || source->count <= 0);
    return (source->kind & kStandardInput) || source->stream != nullptr;
}

// The next wide character of standard input, or WEOF.
extern "C" wint_t tamrik_next_wide(InputSource *source);

// Ends a scan of a file or of standard input. The `count` bytes at `waiting` were given back, the
// next one first; they and all else that was read ahead are in the stream afterwards, and the block
// is freed.
extern "C" void tamrik_leave_source(InputSource *source, const char *waiting, int count,
                                    bool isWide);

#endif
