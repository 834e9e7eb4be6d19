// The disks of macOS, from a diskutil that prints what that of macOS prints.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <doctest/doctest.h>

#include "observe/disks.h"

namespace fs = std::filesystem;

// The disks, each described, where diskutil prints `list`.
static std::optional<std::vector<std::string>> DisksOf(const std::string &list)
{
    char name[] = "/tmp/disks_test.XXXXXX";
    const fs::path folder = mkdtemp(name);
    std::ofstream(folder / "diskutil") << "#!/bin/sh\n[ \"$*\" = 'list -plist' ] && cat <<'END'\n"
                                       << list << "END\n";
    fs::permissions(folder / "diskutil", fs::perms::owner_all);
    const std::string path = getenv("PATH");
    (void)setenv("PATH", (folder.string() + ":" + path).c_str(), 1);
    const auto disks = observe::ListDisks("");
    (void)setenv("PATH", path.c_str(), 1);
    fs::remove_all(folder);
    if (!disks)
        return std::nullopt;
    std::vector<std::string> texts;
    for (const observe::Disk &disk : *disks)
        texts.push_back(Describe(disk));
    return texts;
}

TEST_CASE("volumes are taken from whole disks, partitions and containers, those of a CD as optical")
{
    CHECK(DisksOf(R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
<dict>
	<key>AllDisks</key>
	<array>
		<string>disk0</string>
		<string>disk2</string>
	</array>
	<key>AllDisksAndPartitions</key>
	<array>
		<dict>
			<key>APFSVolumes</key>
			<array>
				<dict>
					<key>DeviceIdentifier</key>
					<string>disk1s1</string>
					<key>MountPoint</key>
					<string>/</string>
					<key>Size</key>
					<integer>250685575168</integer>
					<key>VolumeName</key>
					<string>Tom &amp; &lt;Anna&gt;'s Mac</string>
				</dict>
			</array>
			<key>Content</key>
			<string>EF57347C-0000-11AA-AA11-00306543ECAC</string>
			<key>DeviceIdentifier</key>
			<string>disk1</string>
			<key>Size</key>
			<integer>250685575168</integer>
		</dict>
		<dict>
			<key>Content</key>
			<string>CD_partition_scheme</string>
			<key>DeviceIdentifier</key>
			<string>disk2</string>
			<key>Partitions</key>
			<array>
				<dict>
					<key>Content</key>
					<string>Apple_HFS</string>
					<key>DeviceIdentifier</key>
					<string>disk2s1</string>
					<key>Size</key>
					<integer>12582912</integer>
					<key>VolumeName</key>
					<string>Orvanta</string>
				</dict>
			</array>
			<key>Size</key>
			<integer>12600000</integer>
		</dict>
		<dict>
			<key>Content</key>
			<string></string>
			<key>DeviceIdentifier</key>
			<string>disk3</string>
			<key>MountPoint</key>
			<string>/Volumes/STICK</string>
			<key>VolumeName</key>
			<string>STICK</string>
		</dict>
	</array>
</dict>
</plist>
)") == std::vector<std::string>{
           "\"Orvanta\" on /dev/disk2s1, 12.6 MB, optical, not mounted",
           "\"STICK\" on /dev/disk3, mounted at /Volumes/STICK",
           "\"Tom & <Anna>'s Mac\" on /dev/disk1s1, 251 GB, mounted at /",
       });
}

TEST_CASE("a list without disks has none, a diskutil that prints nothing leaves them unknown")
{
    CHECK(DisksOf("<plist><dict><key>AllDisks</key><array/></dict></plist>\n") ==
          std::vector<std::string>());
    CHECK_FALSE(DisksOf(""));
}

TEST_CASE("a list that is cut short or broken gives the disks that it names whole")
{
    CHECK(DisksOf("<dict><key>VolumeName</key><string>A</string></dict><dict><key>VolumeName</key>"
                  "<string>B</str") == std::vector<std::string>{"\"A\" on , not mounted"});
    CHECK(DisksOf("</dict><string>x</string><dict") == std::vector<std::string>());
}
