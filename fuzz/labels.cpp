// Any bytes as the name of a udev link, as a label and as a line of mountinfo, beside a plain way
// of writing names: what decodes is what udev would have written, every label survives the way
// there and back, and a place never leaves /Volumes.
#include "fuzz/check.h"
#include "platform/linux/Labels.h"
#include "platform/linux/MountPoints.h"

#include <string.h>

#include <memory>
#include <string>

// The length of the valid character of UTF-8 at the front of the text that is no ASCII; 0 without
// one.
static std::size_t LongCharacter(const std::string &text)
{
    const auto byte = [&text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned first = byte(0);
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 0;
    unsigned value = length == 4 ? first & 7 : length == 3 ? first & 15 : first & 31;
    if (length == 0 || first >= 0xF8)
        return 0;
    for (std::size_t i = 1; i < length; i++) {
        if (byte(i) < 0x80 || byte(i) > 0xBF)
            return 0;
        value = value * 64 + (byte(i) & 63);
    }
    static const unsigned kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = value >= 0xD800 && value <= 0xDFFF;
    return value < kLeast[length] || value > 0x10FFFF || isSurrogate ? 0 : length;
}

static std::string LinkName(const std::string &label)
{
    static const std::string kPlain =
        "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
        "#+-.:=@_";
    static const char kDigits[] = "0123456789abcdef";
    std::string name;
    for (std::size_t i = 0; i < label.size(); i++) {
        const std::size_t length = LongCharacter(label.substr(i, 4));
        const auto byte = static_cast<unsigned char>(label[i]);
        if (length > 0) {
            name += label.substr(i, length);
            i += length - 1;
        } else if (kPlain.find(label[i]) != std::string::npos) {
            name += label[i];
        } else {
            name += std::string("\\x") + kDigits[byte / 16] + kDigits[byte % 16];
        }
    }
    return name;
}

static bool IsFolderName(const std::string &label)
{
    return !label.empty() && label != "." && label != ".." && label.size() <= kLabelMax;
}

static void CheckLabel(const std::string &text)
{
    const auto label = std::make_unique<char[]>(kLabelMax + 1);
    const bool decodes = DecodeLabel(LinkName(text).c_str(), label.get(), kLabelMax + 1);
    FUZZ_CHECK(decodes == IsFolderName(text));
    FUZZ_CHECK(label.get() == (decodes ? text : ""));
}

static void CheckName(const std::string &name, std::size_t labelSize)
{
    const auto label = std::make_unique<char[]>(labelSize);
    if (DecodeLabel(name.c_str(), label.get(), labelSize)) {
        FUZZ_CHECK(IsFolderName(label.get()));
        FUZZ_CHECK(LinkName(label.get()) == name);
    } else {
        FUZZ_CHECK(label[0] == '\0');
    }
    IsTemporaryName(name.c_str());
}

static void CheckPlace(const std::string &label, int number, std::size_t size)
{
    const auto place = std::make_unique<char[]>(size);
    std::string expected = label;
    for (char &ch : expected)
        ch = ch == '/' ? ':' : ch;
    expected = "/Volumes/" + expected + (number == 0 ? "" : " " + std::to_string(number));
    const bool fits = expected.size() < size;
    FUZZ_CHECK(PlaceName(label.c_str(), number, place.get(), size) == fits);
    FUZZ_CHECK(place.get() == (fits ? expected : ""));
    FUZZ_CHECK(!fits || strrchr(place.get(), '/') == place.get() + sizeof "/Volumes" - 1);
}

static void CheckMountLine(const std::string &text)
{
    const auto line = std::make_unique<char[]>(text.size() + 1);
    memcpy(line.get(), text.c_str(), text.size() + 1);
    MountLine mount = {};
    if (!ParseMountLine(line.get(), &mount))
        return;
    for (const char *part : {mount.root, mount.point, mount.options, mount.source})
        FUZZ_CHECK(part > line.get() && part + strlen(part) <= line.get() + text.size());
    HasOption(mount.options, "nosuid");
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 2)
        return 0;
    std::string text(reinterpret_cast<const char *>(data) + 2, size - 2);
    text = text.substr(0, text.find('\0'));
    CheckLabel(text);
    CheckName(text, 1 + std::size_t{data[0]});
    CheckPlace(text, data[1] % 100, 1 + std::size_t{data[0]} * 2);
    CheckMountLine(text);
    return 0;
}
