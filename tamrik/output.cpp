// output.cpp - the bounded printf family: its checks of arguments and the calls that fill a buffer.
//
// A format is taken apart in two ways. Its plain pieces, text and directives like "%d" and "%s",
// are put at once (output_plain.h); all else goes through the state machine (output_machine.h),
// which has each directive converted (output_conversions.h). Both write through output_writing.h.
// Nothing survives a call, and errno is put back wherever the C library may have touched it.
//
// What surprises: the markers widthFromArgs and precisionFromArgs outlive their directive, and the
// platform does not always read the sub-format of a floating conversion as it was written. Both are
// explained where they happen.
#include "tamrik/tamrik.h"

#include "tamrik/output_machine.h"
#include "tamrik/output_plain.h"
#include "tamrik/output_writing.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

static constexpr int kDoesNotFit = -2;  // vsnprintf_helper: the output is longer than the room

// ---- The engine ----

// Formats what is left of a call's format.
template <class Char>
static int FormatRest(Call<Char> *call)
{
    while (*call->next != '\0' && call->charsOut >= 0) {
        if (!RunMachine(call))
            return -1;
        if (call->charsOut >= 0)
            WritePlainPieces(call);
    }
    return call->charsOut;
}

template <class Char>
static int Format(OutputStream *stream, const Char *format, Arguments *arguments)
{
    Call<Char> call = {.next = format, .stream = stream, .arguments = arguments};
    WritePlainPieces(&call);
    return FormatRest(&call);
}

// Formats a call that was passed no arguments, up to the first directive that needs one.
static int FormatText(Call<char> *call)
{
    for (;;) {
        WriteLiterals(call);
        if (*call->next == '\0' || call->charsOut < 0)
            return call->charsOut;
        const char *const start = call->next;
        if (!RunMachine(call))
            return call->next == start ? call->charsOut : -1;
    }
}

// ---- The bounded calls ----

// Ends the text in a destination of `size` bytes, of which the engine returned `result`.
static inline int Terminate(char *dest, size_t size, OutputStream *stream, int result)
{
    if (result >= 0) {
        const int left = stream->count--;
        if (left > 0) {
            *stream->cur = '\0';
            return result;
        }
    }
    if (size > 0)
        dest[size - 1] = '\0';
    return stream->count < 0 ? kDoesNotFit : -1;
}

// Of a text that did not fit, what fits stays; one that failed is emptied.
static inline int KeepWhatFits(char *dest, int result)
{
    if (result >= 0)
        return result;
    if (result != kDoesNotFit)
        dest[0] = '\0';
    return -1;
}

// Formats into a destination of `size` bytes what follows the plain pieces that are there already.
[[gnu::noinline]] static int FormatSlowly(char *dest, size_t size, Stop stop, Arguments *arguments)
{
    OutputStream stream = {static_cast<int>(size), dest};
    Call<char> call = {.next = stop.at.next, .stream = &stream, .arguments = arguments};
    GoOn(&call, stop);
    return Terminate(dest, size, &stream, FormatRest(&call));
}

// Formats into a destination of `size` bytes and keeps what fits of a text that is longer.
[[gnu::noinline]] static int FormatTruncating(char *dest, size_t size, const char *format,
                                              Arguments *arguments)
{
    Stop stop = {.at = {format, dest}};
    if (size >= kPlainRoom) [[likely]] {
        stop = PutPlainPieces(format, dest, dest + size, arguments);
        if (stop.isDone) [[likely]] {
            *stop.at.to = '\0';
            return static_cast<int>(stop.at.to - dest);
        }
    }
    return KeepWhatFits(dest, FormatSlowly(dest, size, stop, arguments));
}

// Formats into a destination of `size` bytes and keeps nothing of a text that is longer.
[[gnu::noinline]] static int FormatWhole(char *dest, size_t size, const char *format,
                                         Arguments *arguments)
{
    const int result = FormatSlowly(dest, size, {.at = {format, dest}}, arguments);
    // Intended: the last byte is cleared even if the text ends long before it.
    dest[size - 1] = '\0';
    if (result >= 0)
        return result;
    dest[0] = '\0';
    return -1;
}

[[gnu::cold, gnu::noinline]] static int Refuse(char *dest, size_t destMax)
{
    if (dest != nullptr && destMax != 0)
        dest[0] = '\0';
    return -1;
}

static inline int FormatBounded(char *dest, size_t destMax, size_t count, const char *format,
                                Arguments *arguments)
{
    // The one count above the limit that is good, SIZE_MAX, wraps round.
    if (IsBadSize(destMax, MAX_BUFFER_SIZE) || dest == nullptr || format == nullptr ||
        count + 1 > MAX_BUFFER_SIZE)
        return Refuse(dest, destMax);
    if (destMax > count)
        return FormatTruncating(dest, count + 1, format, arguments);
    return FormatWhole(dest, destMax, format, arguments);
}

// ---- Public functions ----

int snprintf_s(char *strDest, size_t destMax, size_t count, const char *format, ...)
{
    Arguments arguments;
    va_start(arguments.list, format);
    const int result = FormatBounded(strDest, destMax, count, format, &arguments);
    va_end(arguments.list);
    return result;
}

int vsnprintf_s(char *strDest, size_t destMax, size_t count, const char *format, va_list argList)
{
    Arguments arguments;
    va_copy(arguments.list, argList);
    const int result = FormatBounded(strDest, destMax, count, format, &arguments);
    va_end(arguments.list);
    return result;
}

int snprintf_text(char *strDest, size_t destMax, const char *format, const char **rest)
{
    *rest = nullptr;
    if (IsBadSize(destMax, MAX_BUFFER_SIZE) || strDest == nullptr || format == nullptr)
        return Refuse(strDest, destMax);
    OutputStream stream = {static_cast<int>(destMax), strDest};
    Call<char> call = {.next = format, .stream = &stream, .arguments = nullptr};
    const int result =
        KeepWhatFits(strDest, Terminate(strDest, destMax, &stream, FormatText(&call)));
    if (result >= 0)
        *rest = call.next;
    return result;
}

int vsnprintf_helper(char *dest, size_t size, const char *format, va_list argList)
{
    Arguments arguments;
    va_copy(arguments.list, argList);
    const size_t room = size < MAX_BUFFER_SIZE ? size : MAX_BUFFER_SIZE;
    const int result =
        FormatSlowly(dest, dest != nullptr ? room : 0, {.at = {format, dest}}, &arguments);
    va_end(arguments.list);
    return result;
}

int tamrik_output_s(OutputStream *stream, const char *format, va_list argList)
{
    Arguments arguments;
    va_copy(arguments.list, argList);
    const int result = Format(stream, format, &arguments);
    va_end(arguments.list);
    return result;
}

int tamrik_woutput_s(OutputStream *stream, const wchar_t *format, va_list argList)
{
    Arguments arguments;
    va_copy(arguments.list, argList);
    const int result = Format(stream, format, &arguments);
    va_end(arguments.list);
    return result;
}

int indirectSprintf(char *buffer, const char *format, ...)
{
    va_list argList;
    va_start(argList, format);
#pragma GCC diagnostic push
// Some platforms warn of any vsprintf; the size of this buffer is computed from the sub-format.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    const int result = vsprintf(buffer, format, argList);
#pragma GCC diagnostic pop
    va_end(argList);
    return result;
}

void write_char_a(char ch, OutputStream *stream, int *charsOut)
{
    WriteRepeated(ch, 1, stream, charsOut);
}

void write_multi_char_a(char ch, int n, OutputStream *stream, int *charsOut)
{
    WriteRepeated(ch, n, stream, charsOut);
}

void write_string_a(const char *str, int n, OutputStream *stream, int *charsOut)
{
    WriteString(str, n, stream, charsOut);
}

int putWcharStrEndingZero(OutputStream *stream, int n)
{
    int written = 0;
    WriteRepeated('\0', n, stream, &written);
    return written == n ? 1 : 0;
}
