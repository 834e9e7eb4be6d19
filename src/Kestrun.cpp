// Kestrun.cpp - start-up, disk arrival, mount-time actions and the search for the serial port.
//
// Owns gMountArgs and, for the life of the process, the disk arbitration session and its match
// dictionary. Uses the log, both configuration readers (the INI reader for the texts, the key file
// reader for the mount choice) and the shell. What surprises: a callback may block for ever (it
// waits for the Finder), and every later disk event waits with it; there is no queue, no timer and
// no second thread.
#include "src/Kestrun.h"

#include "Common/INI.h"
#include "Common/Log.h"
#include "src/ActiveVolumeProgram.h"
#include "src/Process.h"
#include "tamrik/tamrik.h"

#include <IOKit/IOKitLib.h>

#include <stdio.h>
#include <string.h>
#include <unistd.h>

static constexpr char kSourceFile[] = "src/Kestrun";
static constexpr char kLogFile[] = "/usr/local/Tarnwell/Kestrun.log";
static constexpr char kConfigFile[] = "/Library/StartupItems/QVKestrun/config";
static constexpr char kConfigSection[] = "Volumes";
static constexpr char kVolumesDir[] = "/Volumes/";
static constexpr char kDefaultVolumeName[] = "Orvanta";
static constexpr char kDefaultAppPath[] = "/Volumes/Orvanta/Orvanta.app/";
static constexpr char kSysConfigFile[] =
    "/Applications/Orvanta.app/Contents/Resources/SysConfig.dat";
static constexpr char kSetupOpenPrefix[] = "open \"";

static constexpr char kPortName[] = "QARVELMobile-Pcui";
static constexpr int kPortTries = 10;        // looks for the serial port at start-up ...
static constexpr unsigned kPortPause = 1;    // ... so many seconds apart
static constexpr int kVolumeBudget = 300;    // seconds that start-up waits for the volume
static constexpr unsigned kFinderPause = 5;  // seconds between two looks for the Finder
static constexpr int kOpenTries = 10;        // runs of the open command before it counts as failed
static constexpr DADiskOptions kMountAutomatic = 0x10;  // the option that DADiskSetOptions switches

// The value of kIOMasterPortDefault. That name is deprecated since macOS 12, and its successor does
// not exist in earlier versions; a null port is documented to mean the default one in all of them.
static constexpr mach_port_t kDefaultPort = 0;

static constexpr size_t kVolumeNameSize = 64;  // a volume name: 63 characters
static constexpr size_t kPortPathSize = 1024;  // a callout device path
static constexpr size_t kOwnerSize = 256;      // a user's name and the command that asks for it
static constexpr size_t kOutputSize = 1024;    // what the search for the Finder prints
static constexpr size_t kAppSize = 512;        // the application's path

CFStringRef gMountArgs[2];  // the mount option and the null after it; both null at start

// The serial ports that the I/O registry knows. The query consumes the dictionary; null, when it
// could not be made, is passed on.
static kern_return_t ListSerialPorts(io_iterator_t *ports)
{
    CFMutableDictionaryRef matching = IOServiceMatching("IOSerialBSDClient");
    if (matching != nullptr)
        CFDictionarySetValue(matching, CFSTR("IOSerialBSDClientType"), CFSTR("IOSerialStream"));
    return IOServiceGetMatchingServices(kDefaultPort, matching, ports);
}

int FindCommPort(const char *namePart, char *outPath, int outSize)
{
    Log(kSourceFile, "FindCommPort", "FindCommPort Enter");
    if (namePart == nullptr) {
        Log(kSourceFile, "FindCommPort", "param error.");
        return -1;
    }

    io_iterator_t ports = 0;
    if (ListSerialPorts(&ports) != 0) {
        Log(kSourceFile, "FindCommPort",
            "IOServiceGetMatchingSerices failed, FindCommPort exit");  // sic
        return -1;
    }

    char path[kPortPathSize];
    memset_s(path, sizeof path, 0, sizeof path);
    const bool copyWanted = outPath != nullptr && outSize > 0;
    io_object_t port;
    while ((port = IOIteratorNext(ports)) != 0) {
        CFTypeRef property =
            IORegistryEntryCreateCFProperty(port, CFSTR("IOCalloutDevice"), kCFAllocatorDefault, 0);
        if (property == nullptr) {
            IOObjectRelease(port);
            continue;
        }
        // UTF-8 here, Mac OS Roman for the volume's name. Intended: the two differ.
        const bool converted = CFStringGetCString(static_cast<CFStringRef>(property), path,
                                                  sizeof path, kCFStringEncodingUTF8);
        path[sizeof path - 1] = '\0';  // a conversion that failed may leave anything there

        // Intended: the path is the format. It is logged even when its conversion failed.
        Log(kSourceFile, "FindCommPort", path);
        // Intended: a path that does not match is copied too.
        if (copyWanted) {
            const size_t size = static_cast<size_t>(outSize);
            strncpy_s(outPath, size, path, size - 1);
        }
        CFRelease(property);
        if (converted && strstr(path, namePart) != nullptr) {
            IOObjectRelease(ports);
            // Intended: the matching port itself is kept.
            Log(kSourceFile, "FindCommPort", "FindCommPort success, and exit");
            return 0;
        }
        IOObjectRelease(port);
    }
    IOObjectRelease(ports);
    Log(kSourceFile, "FindCommPort", "findCommPort failed, FindCommPort exit");  // sic
    return -1;
}

void DiskPeekCallback(DADiskRef disk, void * /*context*/)
{
    Log(kSourceFile, "DiskPeekCallback", "DiskPeekCallback Enter");
    Log(kSourceFile, "DiskPeekCallback", "----------------------Device inserted!---------------");
    if (DADiskSetOptions(disk, kMountAutomatic, false) != 0)
        Log(kSourceFile, "DiskPeekCallback", "DADiskSetOptions failed!");
    DADiskMountWithArguments(disk, nullptr, kDADiskMountOptionDefault, DiskMountCallback, nullptr,
                             gMountArgs);
    Log(kSourceFile, "DiskPeekCallback", "DiskPeekCallback exit");
}

// Reads one line of a pipe, its line feed included, into `line`. False, with `line` empty, when
// there is none.
static bool ReadFirstLine(FILE *pipe, char *line, int lineSize)
{
    if (fgets(line, lineSize, pipe) != nullptr)
        return true;
    line[0] = '\0';
    return false;
}

// Whether the user that this process runs as owns the console.
//
// Intended: both names are compared as they were read, each with its line feed; two that could not
// be read are equal. A process id of 0 skips the check.
static bool IsConsoleOwner()
{
    const pid_t pid = getpid();
    if (pid == 0)
        return true;

    char command[kOwnerSize];
    char consoleOwner[kOwnerSize];
    memset_s(command, sizeof command, 0, sizeof command);
    memset_s(consoleOwner, sizeof consoleOwner, 0, sizeof consoleOwner);
    snprintf_s(command, sizeof command, sizeof command - 1,
               "ps aux | awk -v PID=%d '$2 == PID { print $1 }'", pid);
    // Intended: the command line is the format.
    Log(kSourceFile, "DiskMountCallback", command);

    char owner[kOwnerSize];
    memset_s(owner, sizeof owner, 0, sizeof owner);
    FILE *pipe = popen(command, "r");
    if (pipe == nullptr) {
        Log(kSourceFile, "DiskMountCallback", "create pipe failed!");
        return false;
    }
    if (!ReadFirstLine(pipe, owner, sizeof owner))
        Log(kSourceFile, "DiskMountCallback", "fgets pname failed!");
    pclose(pipe);

    // Without this pipe the owner of the console counts as unreadable: it differs from the user of
    // the daemon, if that was read, and nothing is opened.
    pipe = popen("stat -f%Su /dev/console", "r");
    if (pipe == nullptr || !ReadFirstLine(pipe, consoleOwner, sizeof consoleOwner))
        Log(kSourceFile, "DiskMountCallback", "fgets active failed!");
    if (pipe != nullptr)
        pclose(pipe);

    if (strcmp(owner, consoleOwner) != 0) {
        Log(kSourceFile, "DiskMountCallback", "are not same return.....");
        return false;
    }
    Log(kSourceFile, "DiskMountCallback", "actvie == pname.....");  // sic
    return true;
}

// Returns when the Finder runs. Intended: it never gives up.
static void WaitForFinder()
{
    char output[kOutputSize];
    for (;;) {
        memset_s(output, sizeof output, 0, sizeof output);
        const bool ran = RunShellCmd("ps -A | grep 'Finder[.]'", output, sizeof output);
        if (ran && output[0] != '\0')
            return;
        if (ran)
            Log(kSourceFile, "DiskMountCallback", "No fond Finder, not run board app");  // sic
        else
            Log(kSourceFile, "DiskMountCallback", "send cmd failed, not run board app");
        sleep(kFinderPause);
    }
}

void BuildOpenCommand(const char *path, char *command)
{
    // Intended: a path of more than 501 characters is cut to what fits, and loses the closing
    // quote.
    strncpy_s(command, kOpenCommandSize, "open -a \"", kOpenCommandSize - 1);
    strncat_s(command, kOpenCommandSize, path, kOpenCommandSize - 1 - strlen(command));
    strncat_s(command, kOpenCommandSize, "\"", kOpenCommandSize - 1 - strlen(command));
}

// Opens the connection manager at the path that the configuration has now.
static void OpenApplication()
{
    char path[kAppSize];
    char command[kOpenCommandSize];
    memset_s(path, sizeof path, 0, sizeof path);
    memset_s(command, sizeof command, 0, sizeof command);

    if (SetIniFileName(kConfigFile)) {
        // Intended: the text has nothing to do with the check, and has a line feed of its own.
        Log(kSourceFile, "DiskMountCallback",
            "Current Mac OS version is newer than Mac OS X 10.4\n");
        strncpy_s(path, sizeof path, ReadString(kConfigSection, "path1", kDefaultAppPath),
                  sizeof path - 1);
        BuildOpenCommand(path, command);
    } else {
        Log(kSourceFile, "DiskMountCallback", "Doesn't find ini file.");
        // Intended: this path is not quoted.
        strncpy_s(command, sizeof command, "open -a /Volumes/Orvanta/Orvanta.app/",
                  sizeof command - 1);
    }

    if (RunShellProgram(command, kOpenTries))
        Log(kSourceFile, "DiskMountCallback", "Run Orvanta Program success");
    else
        Log(kSourceFile, "DiskMountCallback", "RunShellProgram failed, can't run Orvanta Program");
}

void DiskMountCallback(DADiskRef /*disk*/, DADissenterRef /*dissenter*/, void * /*context*/)
{
    Log(kSourceFile, "DiskMountCallback", "DiskMountCallback Enter");
    // Intended: the result of the mount is ignored.
    if (!IsConsoleOwner())
        return;  // Intended: without the exit message.
    WaitForFinder();
    Log(kSourceFile, "DiskMountCallback", "have some one login succ");
    OpenApplication();
    DiskMountApproval();
    Log(kSourceFile, "DiskMountCallback", "DiskMountCallback exit");
}

int DiskMountApproval()
{
    Log(kSourceFile, "DiskMountApproval", "DiskMountApproval Enter");
    if (!RunSDProgram(kSysConfigFile, kSetupOpenPrefix, kVolumesDir)) {
        // Intended: the blank at the end is part of the text.
        Log(kSourceFile, "DiskMountApproval",
            "finish run program, and error, DiskMountApproval exit ");
        return -1;
    }
    Log(kSourceFile, "DiskMountApproval",
        "finish run sd program, and successful, DiskMountApproval exit");
    return 0;
}

// 6. Whether the serial port of the modem appears within ten seconds. A modem that comes later is
// handled by the run loop.
static bool AwaitModem()
{
    for (int tries = 0; tries < kPortTries; tries++) {
        if (FindCommPort(kPortName, nullptr, 0) == 0)
            return true;
        Log(kSourceFile, "main", "wait to again to find comm port at beginning to run autorun...");
        sleep(kPortPause);
    }
    return false;
}

// 7. and 8. Waits for the volume and does once what its mount would cause.
static void RunAtStart(const char *volumeName)
{
    char name[kVolumeNameSize];
    memset_s(name, sizeof name, 0, sizeof name);
    strncpy_s(name, sizeof name, volumeName, sizeof name - 1);
    if (!IsVolumeExist(name, kVolumesDir, kVolumeBudget)) {
        // Intended: the text names the default volume, whatever name is configured.
        Log(kSourceFile, "main",
            "can't find /Volumes/Orvanta, can't run firmware program and SDProgram");
        return;
    }
    DiskMountCallback(nullptr, nullptr, nullptr);
    Log(kSourceFile, "main", "finish run SDProgram at beginning to run autorun");
}

// 9. The dictionary that selects the disks that the service offers: those of the configured name.
// The caller owns it.
static CFMutableDictionaryRef CreateMatch(const char *volumeName)
{
    CFMutableDictionaryRef match = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    // Intended: Mac OS Roman, where the serial port's path is UTF-8.
    CFStringRef name =
        CFStringCreateWithCString(kCFAllocatorDefault, volumeName, kCFStringEncodingMacRoman);
    CFDictionarySetValue(match, kDADiskDescriptionVolumeNameKey, name);
    if (name != nullptr)
        CFRelease(name);
    return match;
}

int main()
{
    // 1. The log.
    InitLogSystem(kLogFile);

    // 2. The session, which delivers no events before it is scheduled.
    char volumeName[kVolumeNameSize];
    memset_s(volumeName, sizeof volumeName, 0, sizeof volumeName);
    DASessionRef session = DASessionCreate(kCFAllocatorDefault);

    // 3. The banner and the version.
    Log(kSourceFile, "main",
        "\n\n====================================Kestrun started===============================");
    Log(kSourceFile, "main", "TOOL-BrelmarkV100R001B035");

    // 4. The volume's name.
    const char *configuredName = kDefaultVolumeName;
    if (SetIniFileName(kConfigFile))
        configuredName = ReadString(kConfigSection, "name", kDefaultVolumeName);
    strncpy_s(volumeName, sizeof volumeName, configuredName, sizeof volumeName - 1);

    // 5. The modem may be there already.
    Log(kSourceFile, "main", "begin to run SDProgram at beginning to run autorun");

    // 6. to 8. If its serial port is, the actions run once without a mount.
    if (AwaitModem())
        RunAtStart(volumeName);

    // 9. The match dictionary.
    CFMutableDictionaryRef match = CreateMatch(volumeName);

    // 10. The mount option. Intended: the configuration is read by the key file reader here.
    if (IsKeyValueCaseEqual(kConfigFile, kConfigSection, "disable_cdrom", "true")) {
        gMountArgs[0] = CFSTR("nobrowse");
        Log(kSourceFile, "main", "value of disable_cdrom is true");
    } else {
        gMountArgs[0] = CFSTR("rdonly");
        Log(kSourceFile, "main", "value of disable_cdrom is false");
    }

    // 11. From here on events are delivered.
    DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    DARegisterDiskPeekCallback(session, match, 0, DiskPeekCallback, nullptr);

    // 12. Normally this does not return. The session and the dictionary are never released.
    CFRunLoopRun();

    // 13. The end, if the loop returns.
    CloseLogSystem();
    return 0;
}
