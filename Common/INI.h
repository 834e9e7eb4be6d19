// INI.h - string values by section and key from the daemon's configuration file.
//
// Every lookup opens the file afresh, scans it from the top and closes it. A value that is returned
// points into g_linetext and holds until the next call of anything here: copy it at once. Nothing
// here is safe to call from two threads at once.
#ifndef COMMON_INI_H
#define COMMON_INI_H

#include <stdio.h>

extern char g_filename[1024];      // the configuration file's path
extern char g_linetext[1024];      // the line read last, zero-filled behind its end
extern int g_current_line_offset;  // file position after that line
extern int g_last_line_offset;     // file position before it
extern int g_filesize;             // reserved: neither written nor read

bool SetIniFileName(const char *path);
const char *ReadString(const char *section, const char *key, const char *defaultValue);
const char *ReadStringEx(const char *section, const char *key, const char *defaultValue);
int ReadInteger(const char *section, const char *key, int defaultValue);
const char *GetInitKey(void *reserved, const char *section, const char *key);
bool SectionExists(FILE *file, const char *section);
bool KeyExists(FILE *file, const char *key);
char *GetKeyValue(char *line);
char *Trim(char *text);
char *ReadLine(FILE *file);
bool KeyExistsInLine(char *line, const char *key);
bool SectionExistsInLine(const char *line, const char *section);

#endif
