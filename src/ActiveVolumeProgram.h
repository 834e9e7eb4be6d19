// ActiveVolumeProgram.h - the reader of "SysConfig.dat", the volume lookup and the setup runner.
#ifndef SRC_ACTIVEVOLUMEPROGRAM_H
#define SRC_ACTIVEVOLUMEPROGRAM_H

#include <stdint.h>
#include <stdio.h>

int64_t TrimKey(char *text);
bool IsPrimaryKey(const char *line, const char *found, int64_t keyLength);
int64_t ReadKeyValue(FILE *file, char *keyIO, int keyIOSize, int64_t *capacity, bool sectionMode);
bool IsKeyValueCaseEqual(const char *path, const char *section, const char *key,
                         const char *expected);
bool IsVolumeExist(const char *name, const char *directory, int testTime);
bool GetTempVolumeName(char *pVPStr, int size, int64_t *capacity, const char *directory,
                       int testTime);
bool RunSDProgram(const char *sysConfigPath, const char *openPrefix, const char *volumesDir);

#endif
