// log_builder.h - writes a log as the daemon would: each line with the next number.
#ifndef TESTS_OBSERVE_LOG_BUILDER_H
#define TESTS_OBSERVE_LOG_BUILDER_H

#include <string>

struct LogBuilder {
    std::string text;
    long number = 0;
    int second = 0;  // of the day 2026-11-20, behind 9:00:00

    LogBuilder &Say(const std::string &source, const std::string &message)
    {
        number++;
        text += "line " + std::to_string(number) + "===2026-11-20 " +
                std::to_string(9 + second / 3600) + ":" + std::to_string(second / 60 % 60) + ":" +
                std::to_string(second % 60) + "   " + source + " --- " + message + "\n";
        return *this;
    }
    LogBuilder &Main(const std::string &message)
    {
        return Say("Kestrun:main", message);
    }
    LogBuilder &Mount(const std::string &message)
    {
        return Say("Kestrun:DiskMountCallback", message);
    }
    LogBuilder &Peek(const std::string &message)
    {
        return Say("Kestrun:DiskPeekCallback", message);
    }
    LogBuilder &Shell(const std::string &message)
    {
        return Say("Process:RunShellProgram", message);
    }
    LogBuilder &Capture(const std::string &message)
    {
        return Say("Process:RunShellCmd", message);
    }
    LogBuilder &Pass(int seconds)
    {
        second += seconds;
        return *this;
    }

    // Banner, version, and the mount option: a start without a modem, in brief.
    LogBuilder &Start()
    {
        number = 0;
        Main(
            "\n\n====================================Kestrun started===============================");
        Main("TOOL-BrelmarkV100R001B035");
        return Main("value of disable_cdrom is false");
    }
    LogBuilder &Inserted()
    {
        Peek("DiskPeekCallback Enter");
        Peek("----------------------Device inserted!---------------");
        return Peek("DiskPeekCallback exit");
    }
    LogBuilder &MountEnds()
    {
        Mount("DiskMountCallback Enter");
        return Mount("ps aux | awk -v PID=4711 '$2 == PID { print $1 }'");
    }
    LogBuilder &Look()
    {
        return Capture("enter RunShellCmd (ps -A | grep 'Finder[.]')");
    }
    LogBuilder &LookFails(int status = 256)
    {
        Look().Shell("RunShellProgram Enter");
        for (int attempt = 0; attempt < 10; attempt++) {
            Shell("system failed " + std::to_string(attempt) + " time, return " +
                  std::to_string(status) + "[Unknown error]:(ps), err = (Success)");
            Pass(1);
        }
        Shell("(ps) false, RunShellProgram exit failed");
        Capture("RunShellProgram cmdBuff 1 failed");
        Mount("send cmd failed, not run board app");
        return Pass(5);
    }
    LogBuilder &Opens(const std::string &command)
    {
        return Shell("RunShellProgram Enter").Shell("RunShellProgram exit true.(" + command + ")");
    }
};

#endif
