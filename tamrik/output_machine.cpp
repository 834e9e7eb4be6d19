// output_machine.cpp - the state machine of formatted output: a step for each state.
//
// What surprises: the markers widthFromArgs and precisionFromArgs outlive their directive.
#include "tamrik/output_machine.h"

#include "tamrik/output_conversions.h"
#include "tamrik/output_states.h"

#include <limits.h>

static constexpr int kNumberLimit = 21474836;  // a width or precision above it takes no more digits

// ---- The machine's steps ----

template <class Char>
static void TakeFlag(Directive<Char> *directive, Char ch)
{
    switch (ch) {
    case ' ': directive->flags |= kSpaceForSign; return;
    case '#': directive->flags |= kAlternate; return;
    case '+': directive->flags |= kForceSign; return;
    case '-': directive->flags |= kLeftJustify; return;
    case '0': directive->flags |= kZeroPad; return;
    default: return;
    }
}

// Appends a digit to a width or precision. False when the number is beyond the limit. A negative
// one (from a '*') stays as it is.
static bool TakeDigit(int *number, int digit)
{
    if (*number > kNumberLimit)
        return false;
    if (*number >= 0)
        *number = *number * 10 + digit;
    return true;
}

// Whether the call was passed no arguments, so that the directive, which needs one now, must be
// left alone. The call then is at its '%' again.
template <class Char>
static bool LacksArgument(Call<Char> *call, const Directive<Char> &directive)
{
    if (call->arguments != nullptr)
        return false;
    call->next = directive.start;
    return true;
}

template <class Char>
static bool TakeWidth(Call<Char> *call, Directive<Char> *directive, Char ch, bool isFirst)
{
    if (ch != '*') {
        directive->width = isFirst ? 0 : directive->width;
        call->widthFromArgs = false;
        return TakeDigit(&directive->width, ch - '0');
    }
    if (LacksArgument(call, *directive))
        return false;
    directive->width = va_arg(call->arguments->list, int);
    call->widthFromArgs = true;
    if (directive->width < 0) {
        directive->flags |= kLeftJustify;
        // The most negative width has no magnitude: it stays as it is and pads nothing.
        directive->width = directive->width > INT_MIN ? -directive->width : INT_MIN;
    }
    return true;
}

template <class Char>
static bool TakePrecision(Call<Char> *call, Directive<Char> *directive, Char ch)
{
    if (ch != '*') {
        call->precisionFromArgs = false;
        return TakeDigit(&directive->precision, ch - '0');
    }
    if (LacksArgument(call, *directive))
        return false;
    const int precision = va_arg(call->arguments->list, int);
    directive->precision = precision < 0 ? kNoPrecision : precision;
    call->precisionFromArgs = true;
    return true;
}

// 'I' asks for 64 bits by itself before an integer conversion. Returns false when it is no size.
template <class Char>
static bool TakePointerSize(Call<Char> *call, Directive<Char> *directive)
{
    const Char *next = call->next;
    if (next[0] == '6' && next[1] == '4') {
        directive->flags |= kPointerSized;
        call->next += 2;
        return true;
    }
    if (next[0] == '3' && next[1] == '2') {
        directive->flags &= ~static_cast<unsigned>(kPointerSized);
        call->next += 2;
        return true;
    }
    switch (next[0]) {
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X': directive->flags |= kPointerSized; return true;
    default: return false;
    }
}

// Returns the state that the machine goes on in.
template <class Char>
static State TakeSize(Call<Char> *call, Directive<Char> *directive, Char ch)
{
    switch (ch) {
    case 'h': directive->flags |= *call->next == 'h' ? kCharSized : kShort; break;
    case 'l':
        if (*call->next != 'l') {
            directive->flags |= kLong;
            break;
        }
        directive->flags |= kLongLong;
        call->next++;
        break;
    case 'j': directive->flags |= kIntMax; break;
    case 't': directive->flags |= kPtrDiff; break;
    case 'z': directive->flags |= kSizeT; break;
    case 'w': directive->flags |= kWide; break;
    case 'L':
    case 'q': directive->flags |= kLongLong | kLongDouble; break;
    case 'I':
        if (!TakePointerSize(call, directive)) {
            // Intended: the directive is dropped and its rest is text, the 'I' included.
            call->next--;
            return State::Normal;
        }
        break;
    default: break;  // 'N' and 'Z' say nothing
    }
    return State::Size;
}

// ---- The machine ----

// Whether the machine is outside of any directive.
static bool IsOutside(State state)
{
    return state == State::Normal || state == State::Type;
}

template <class Char>
static inline bool RunDirective(Call<Char> *call)
{
    Directive<Char> directive;
    State state = State::Normal;
    do {
        const Char ch = *call->next++;
        const State previous = state;
        state = NextState(ch, state);
        switch (state) {
        case State::Normal: WriteRepeated(ch, 1, call->stream, &call->charsOut); break;
        case State::Percent: directive.start = call->next - 1; break;
        case State::Flag: TakeFlag(&directive, ch); break;
        case State::Width:
            if (!TakeWidth(call, &directive, ch, previous != State::Width))
                return false;
            break;
        case State::Dot: directive.precision = 0; break;
        case State::Precision:
            if (!TakePrecision(call, &directive, ch))
                return false;
            break;
        case State::Size: state = TakeSize(call, &directive, ch); break;
        case State::Type:
            if (LacksArgument(call, directive))
                return false;
            Convert(call, directive, ch);
            break;
        case State::Invalid: return false;
        }
    } while (!IsOutside(state));
    return true;
}

bool tamrik_run_machine(Call<char> *call)
{
    return RunDirective(call);
}

bool tamrik_wrun_machine(Call<wchar_t> *call)
{
    return RunDirective(call);
}
