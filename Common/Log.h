// Log.h - the process's one log: append-only, numbered, time-stamped and capped in size.
//
// The log never reports its own failures: a line that cannot be written is lost, and its number
// with it. Nothing here is safe to call from two threads at once.
#ifndef COMMON_LOG_H
#define COMMON_LOG_H

// Enables logging into the file `path`, which is neither opened nor created here: the first line
// opens it. A null path, or one of more than 1023 characters, disables logging. A stream that is
// open stays in use.
void InitLogSystem(const char *path);

// Writes one line. `sourceFile` is the module's path, of which the part after the last '/' is
// printed; `functionName` is the caller's own name. The message is `format` with its arguments, in
// the format language of vsnprintf_s, cut at 2047 characters. Nothing happens, and nothing is
// counted, when logging is disabled or one of the three texts is null.
template <class First, class... Rest>
void Log(const char *sourceFile, const char *functionName, const char *format, First first,
         Rest... rest);

// The same for a text without arguments. The text is still taken as a format: "%%" prints one
// percent sign, and an invalid conversion empties the message. From the first conversion that needs
// an argument on, the text is written unchanged.
void Log(const char *sourceFile, const char *functionName, const char *text);

// Closes the stream and disables logging. The path and the line number are kept.
void CloseLogSystem();

// What the template calls: a C variadic function.
void LogFormatted(const char *sourceFile, const char *functionName, const char *format, ...);

template <class First, class... Rest>
void Log(const char *sourceFile, const char *functionName, const char *format, First first,
         Rest... rest)
{
    LogFormatted(sourceFile, functionName, format, first, rest...);
}

#endif
