// Scans written by hand, each for one format that it does not read: the lower bound of a scan. It
// does what any engine has to: blanks skipped, values checked for their range and texts for their
// room, floats through strtod from a buffer that is wiped at the end of every scan, the source left
// just behind what was used, errno kept. In a source of their own, where the compiler sees none of
// their arguments.
#ifndef BENCHMARKS_PEERS_SCANS_H
#define BENCHMARKS_PEERS_SCANS_H

#include "tamrik/tamrik.h"

#include <cstdarg>

// A scan of a string as tamrik_input_s does it; the format is not looked at.
using Scanner = int(InputSource *source, const char *format, va_list arguments);

Scanner ScanNumber;        // "%d"
Scanner ScanThreeNumbers;  // "%d %d %d"
Scanner ScanTimeStamp;     // "%d-%d-%d %d:%d:%d"
Scanner ScanHexadecimal;   // "%x"
Scanner ScanLongNumber;    // "%lld"
Scanner ScanWord;          // "%127s"
Scanner ScanTwoWords;      // "%127s %127s"
Scanner ScanKeyAndValue;   // "%127[^=]=%127[^\n]"
Scanner ScanFloat;         // "%lf"

#endif
