// privacy.h - texts without what belongs to a person: user names, serial numbers, folders of homes.
#ifndef MODEM_PRIVACY_H
#define MODEM_PRIVACY_H

#include <map>
#include <set>
#include <string>

namespace modem
{

// What stands for what. A name that looks like a stand-in already ("user1") stands for itself, so
// that a text masked twice is the text masked once.
struct Privacy {
    std::map<std::string, std::string> users;    // "anna" to "user1"
    std::map<std::string, std::string> serials;  // "0123456789ABCDEF" to "serial1"
    std::set<std::string> kept;                  // words that are no serial numbers
};

// The name that a configuration gives to the modem's volume is the product's and no serial number:
// its words stay, whole and as the daemon cuts the name, to 63 bytes.
void KeepVolumeName(Privacy *privacy, const std::string &config);

// The stand-in of a user, which is given one when it has none. root and nobody are no persons.
std::string MaskUser(Privacy *privacy, const std::string &user);

// `text` with every known user's name (as a word, letter case ignored), every name of a folder
// behind /Users/ or /home/, and every serial number replaced. A serial number is a run of six
// letters and digits or more with four digits or more in it.
std::string MaskText(Privacy *privacy, const std::string &text);

// The name of a serial port as udev forms it, usb-<maker>_<model>_<serial>-if..., with the serial
// masked whatever it looks like, unless it holds the modem's own part of a name.
std::string MaskPort(Privacy *privacy, const std::string &name);

}  // namespace modem

#endif
