// World.h - a private world for the tests of the platform layer: a mount namespace with its own
// root, in which /dev/disk, /dev/serial, /Volumes and /run are empty and everything else is the
// machine's. As root it needs no more; anybody else gets a user namespace with it.
#ifndef TESTS_PLATFORM_WORLD_H
#define TESTS_PLATFORM_WORLD_H

#include <CoreFoundation/CoreFoundation.h>
#include <DiskArbitration/DiskArbitration.h>

#include <functional>
#include <string>
#include <vector>

// Enters the world, once a process, and empties it of what the test case before left. False, with a
// message that says "skipped:" and why, where the kernel has no namespaces for us.
bool EnterWorld();

// A fresh folder with the file "app" in it; its path.
std::string NewFolder();

// A fresh file system image of `label`; its path, empty if the machine has no mkfs.ext4 or no loop
// devices for us.
std::string NewImage(const std::string &label);

void WriteFile(const std::string &path, const std::string &text, int mode = 0644);
std::string ReadFile(const std::string &path);
bool Exists(const std::string &path);

// Makes /dev/disk/by-label/<entry> lead to target in udev's way: under a temporary name that is
// then renamed, over what stands there. Folders are made as needed.
void Plug(const std::string &entry, const std::string &target);

// Removes the link, and with the last one the folders.
void Unplug(const std::string &entry);

// The names in a folder, sorted; none if it is not there.
std::vector<std::string> NamesIn(const std::string &folder);

// One mount under /Volumes.
struct MountedAt {
    std::string point;
    std::string options;
    bool operator==(const MountedAt &) const = default;
};
std::vector<MountedAt> Mounts();
std::vector<std::string> MountPoints();

// Puts programs of this text in place of `mount` and `umount`, first on PATH. An empty text leaves
// the machine's own.
void UseMountProgram(const std::string &mountScript, const std::string &umountScript);

// Puts a program of this text in place of `name`, first on PATH, until the test case ends.
void UseProgram(const std::string &name, const std::string &script);

// Lines of a program that waits here until the test says Release: it says to AwaitReached that it
// has come here.
extern const std::string kHold;
bool AwaitReached();
void Release();

// What is written to standard error from now on, and what was written by the end of the object.
class CaughtErrors
{
  public:
    CaughtErrors();
    ~CaughtErrors();
    CaughtErrors(const CaughtErrors &) = delete;
    CaughtErrors &operator=(const CaughtErrors &) = delete;
    std::string Text() const;

  private:
    int m_before;  // where standard error went
};

// A mount program that writes its arguments, one a line and a line "." at the end, to
// /run/mount-log, and ends with the status in /run/mount-status (0 if there is none).
extern const char *const kRecordingScript;

// Runs the loop until `done` or `seconds` have passed; what `done` says at the end.
bool RunUntil(const std::function<bool()> &done, double seconds = 10);

// Lets the loop do all that is due now; programs that run beside it may still be under way.
void Drain();

// Lets the loop do all that is due, and what the programs that run beside it lead to, until nothing
// is under way any more.
void Settle();

// What the callbacks have seen, in order: "peek LABEL", "mounted LABEL", "refused LABEL STATUS".
extern std::vector<std::string> g_events;

// The events once there are as many and nothing is under way any more: none may come that is not
// expected.
std::vector<std::string> Await(size_t count);

std::string LabelOf(DADiskRef disk);
std::string StatusName(DAReturn status);

// Peek callbacks. A context is a text that is added to the event: "peek LABEL (text)".
void RecordPeek(DADiskRef disk, void *context);
void RecordAndMount(DADiskRef disk, void *context);
void RecordMount(DADiskRef disk, DADissenterRef dissenter, void *context);

// The arguments that RecordAndMount passes; ended by null.
extern CFStringRef g_arguments[4];

// A scheduled session with one peek callback for `label` (null: every disk).
DASessionRef Watch(const char *label, DADiskPeekCallback callback, void *context = nullptr);

// Registers one more callback with the session.
void Register(DASessionRef session, const char *label, CFIndex order, DADiskPeekCallback callback,
              void *context = nullptr);

// Unschedules and releases it; if it is the last one, waits until nothing is under way.
void Forget(DASessionRef session, bool isLast = true);

// The command's output without its last line feed; its status in *status.
std::string Output(const std::string &command, int *status = nullptr);

// The open descriptors of this process.
int CountDescriptors();

#endif
