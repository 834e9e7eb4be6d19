// The state machine that reads the directives of an output format and has them converted.
#ifndef TAMRIK_OUTPUT_MACHINE_H
#define TAMRIK_OUTPUT_MACHINE_H

#include "tamrik/output_writing.h"

// Runs the machine over one directive, or over one character that found no room. False when the
// directive is invalid or the format ends inside it. False too when it lacks an argument; the call
// then stands where it stood before.
extern "C" bool tamrik_run_machine(Call<char> *call);
extern "C" bool tamrik_wrun_machine(Call<wchar_t> *call);

static inline bool RunMachine(Call<char> *call)
{
    return tamrik_run_machine(call);
}

static inline bool RunMachine(Call<wchar_t> *call)
{
    return tamrik_wrun_machine(call);
}

#endif
