// daemon.h - the fixed names and numbers that the daemon's files and questions go by. A test holds
// them against its sources.
#ifndef OBSERVE_DAEMON_H
#define OBSERVE_DAEMON_H

namespace observe
{

inline constexpr char kLogFolder[] = "/usr/local/Tarnwell";
inline constexpr char kLogFile[] = "/usr/local/Tarnwell/Kestrun.log";
inline constexpr char kConfigFile[] = "/Library/StartupItems/QVKestrun/config";
inline constexpr char kSysConfigFile[] =
    "/Applications/Orvanta.app/Contents/Resources/SysConfig.dat";
inline constexpr char kConfigSection[] = "Volumes";
inline constexpr char kVolumesDir[] = "/Volumes/";
inline constexpr char kDefaultVolumeName[] = "Orvanta";
inline constexpr char kPortName[] = "QARVELMobile-Pcui";
inline constexpr char kConsoleCommand[] = "stat -f%Su /dev/console";
inline constexpr char kFinderCommand[] = "ps -A | grep 'Finder[.]'";
inline constexpr char kOwnerCommand[] = "ps aux | awk -v PID=";  // its beginning
inline constexpr int kPortTries = 10;
inline constexpr int kOpenTries = 10;
inline constexpr int kStartWait = 300;   // seconds for the volume at the start
inline constexpr int kSetupWait = 180;   // for the volume that holds the setup file
inline constexpr int kPackageWait = 30;  // for the volume that the setup file brings
inline constexpr int kVolumeNameSize = 64;

}  // namespace observe

#endif
