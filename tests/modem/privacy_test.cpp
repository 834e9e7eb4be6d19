// privacy_test.cpp - what belongs to a person is masked, and nothing else.
#include <string>

#include <doctest/doctest.h>

#include "modem/privacy.h"

TEST_CASE("users, homes and serial numbers are masked, each by one stand-in")
{
    struct Row {
        const char *text;
        const char *masked;
    };
    // clang-format off
    const Row rows[] = {
        {"",                                        ""},
        {"anna",                                    "user1"},
        {"Anna's Stick, ANNA",                      "user1's Stick, user1"},
        {"annals",                                  "annals"},
        {"path1 = /Users/anna/Apps/O.app/",         "path1 = /Users/user1/Apps/O.app/"},
        {"/Users/berta/x /home/berta",              "/Users/user2/x /home/user2"},
        {"/Users/j.doe/x and j.doe",                "/Users/user2/x and user2"},
        {"/Users/Shared/x",                         "/Users/Shared/x"},
        {"imei 356938035643809, 356938035643809",   "imei serial1, serial1"},
        {"0123456789ABCDEF fedcba9876543210",       "serial1 serial2"},
        {"build 12345",                             "build 12345"},
        {"V100R001B035",                            "serial1"},
        {"user1 and serial1 stay",                  "user1 and serial1 stay"},
        {"QARVELMobile-Pcui Orvanta ttyUSB0",       "QARVELMobile-Pcui Orvanta ttyUSB0"},
        {"\xC3\xA4\x01%s",                          "\xC3\xA4\x01%s"},
    };
    // clang-format on
    for (const Row &row : rows) {
        CAPTURE(row.text);
        modem::Privacy privacy;
        CHECK(modem::MaskUser(&privacy, "anna") == "user1");
        const std::string masked = modem::MaskText(&privacy, row.text);
        CHECK(masked == row.masked);
        CHECK(modem::MaskText(&privacy, masked) == masked);
    }
}

TEST_CASE("root and nobody are no persons")
{
    modem::Privacy privacy;
    CHECK(modem::MaskUser(&privacy, "root") == "root");
    CHECK(modem::MaskUser(&privacy, "nobody") == "nobody");
    CHECK(modem::MaskUser(&privacy, "") == "");
    CHECK(modem::MaskUser(&privacy, "anna") == "user1");
    CHECK(modem::MaskUser(&privacy, "berta") == "user2");
    CHECK(modem::MaskUser(&privacy, "anna") == "user1");
    CHECK(modem::MaskUser(&privacy, "user7") == "user7");
}

TEST_CASE("a port's serial number is masked whatever it looks like, the modem's own name never")
{
    modem::Privacy privacy;
    const char kModem[] = "usb-QARVEL_QARVELMobile_QARVELMobile-Pcui-if00-port0";
    CHECK(modem::MaskPort(&privacy, kModem) == kModem);
    CHECK(modem::MaskPort(&privacy, "usb-ACME_Modem_XYZ-if00-port0") ==
          "usb-ACME_Modem_serial1-if00-port0");
    CHECK(modem::MaskPort(&privacy, "usb-ACME_Modem_serial1-if00-port0") ==
          "usb-ACME_Modem_serial1-if00-port0");
    CHECK(modem::MaskPort(&privacy, "tty.usbmodem1234567") == "tty.serial2");
}

TEST_CASE(
    "the configured name of the volume stays, whole and cut to 63 bytes, whatever it looks like")
{
    const std::string digits(70, '7');
    const std::string name = "Orvanta " + digits;
    const std::string config =
        "[Volumes]\n  name = " + name + "\npath1 = /Volumes/" + digits + "/x\n";
    modem::Privacy privacy;
    modem::KeepVolumeName(&privacy, config + "names\nname\nname=\n");
    CHECK(modem::MaskText(&privacy, config) == config);
    CHECK(modem::MaskText(&privacy, name.substr(0, 63)) == name.substr(0, 63));
    CHECK(modem::MaskText(&privacy, name.substr(0, 62)) == "Orvanta serial1");
    CHECK(modem::MaskText(&privacy, "path1 = /Volumes/1234567/x") == "path1 = /Volumes/serial2/x");
}
