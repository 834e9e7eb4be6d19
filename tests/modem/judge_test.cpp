// What is expected, judged by what was observed.
#include <string>
#include <vector>

#include <doctest/doctest.h>

#include "modem/judge.h"

using modem::Call;
using modem::Finding;
using modem::Observed;
using modem::Verdict;

namespace
{

// Judges one statement, which may need the daemon.
Finding Judged(const std::string &statement, const Observed &observed)
{
    modem::Scenario scenario;
    modem::Mistake mistake;
    REQUIRE(modem::ParseScenario("start daemon\n" + statement, &scenario, &mistake));
    return modem::Judge(scenario.steps[1], observed);
}

Observed WithLog(const std::vector<std::string> &lines, size_t from = 0)
{
    Observed observed;
    for (const std::string &line : lines)
        observed.log.lines.push_back({line, false});
    observed.logFrom = from;
    return observed;
}

// The record that modem/bin writes: fields that end in a zero byte each.
std::string Record(const std::vector<std::string> &fields)
{
    std::string record;
    for (const std::string &field : fields)
        record += field + std::string(1, '\0');
    return record;
}

}  // namespace

TEST_CASE("a line of the log is looked for behind the one that was expected before it")
{
    const std::vector<std::string> lines = {"a", "b", "a"};
    CHECK(Judged("expect log \"a\"", WithLog(lines)).logLine == 0);
    CHECK(Judged("expect log \"a\"", WithLog(lines, 1)).logLine == 2);
    CHECK(Judged("expect log \"b\"", WithLog(lines, 2)).verdict == Verdict::NotYet);
    CHECK(Judged("expect log \"b\"", WithLog(lines, 2)).came ==
          "the log says it, but only before the line that was expected before it");
    CHECK(Judged("expect log \"c\"", WithLog(lines)).came == "the log does not say it");
}

TEST_CASE("a line that is expected so many times may still come until it came too often")
{
    const Observed observed = WithLog({"a", "b", "a"});
    CHECK(Judged("expect log \"a\" 2 times", observed).verdict == Verdict::True);
    CHECK(Judged("expect log \"a\" 3 times", observed).verdict == Verdict::NotYet);
    CHECK(Judged("expect log \"b\" 2 times", observed).came == "it came once");
    CHECK(Judged("expect log \"a\" 1 times", observed).verdict == Verdict::Never);
    CHECK(Judged("expect log \"a\" 1 times", observed).came == "it came 2 times");
}

TEST_CASE("a line that must not be there is looked for in the whole log")
{
    CHECK(Judged("expect no log \"c\"", WithLog({"a", "b"}, 2)).verdict == Verdict::True);
    const Finding finding = Judged("expect no log \"a\"", WithLog({"xay", "b"}, 2));
    CHECK(finding.verdict == Verdict::Never);
    CHECK(finding.came == "the log says: xay");
}

TEST_CASE("what is mounted is judged by the kernel's options and by those that mount was given")
{
    Observed observed;
    CHECK(Judged("expect nothing mounted", observed).verdict == Verdict::True);
    CHECK(Judged("expect mounted \"/Volumes/Orvanta\"", observed).came == "nothing is mounted");
    observed.mounts = {{"/Volumes/Orvanta", "/dev/sr0", "ro,nosuid"}};
    observed.calls = {
        {"mount", 0, {"-o", "bind,x-gvfs-show", "--", "/dev/sr0", "/Volumes/Orvanta"}},
        {"mount", 32, {"-o", "refused", "--", "/dev/sr0", "/Volumes/Orvanta"}}};
    CHECK(Judged("expect mounted \"/Volumes/Orvanta\"", observed).verdict == Verdict::True);
    CHECK(Judged("expect mounted \"/Volumes/Orvanta\" with \"ro,x-gvfs-show\"", observed).verdict ==
          Verdict::True);
    CHECK(Judged("expect mounted \"/Volumes/Orvanta\" with \"ro,x-gvfs-hide\"", observed).came ==
          "it is mounted with ro,nosuid,bind,x-gvfs-show");
    CHECK(Judged("expect mounted \"/Volumes/Orvanta\" with \"refused\"", observed).verdict ==
          Verdict::NotYet);
    CHECK(Judged("expect mounted \"/Volumes/Orvanta 1\"", observed).came ==
          "mounted: /Volumes/Orvanta");
    CHECK(Judged("expect not mounted \"/Volumes/Orvanta 1\"", observed).verdict == Verdict::True);
    CHECK(Judged("expect not mounted \"/Volumes/Orvanta\"", observed).verdict == Verdict::NotYet);
    CHECK(Judged("expect nothing mounted", observed).verdict == Verdict::NotYet);
}

TEST_CASE("an option is a whole word of the list")
{
    Observed observed;
    observed.mounts = {{"/a", "", "rw,prodigal"}};
    CHECK(Judged("expect mounted \"/a\" with \"ro\"", observed).verdict == Verdict::NotYet);
}

TEST_CASE("only calls of open that worked have opened something")
{
    Observed observed;
    CHECK(Judged("expect nothing opened", observed).verdict == Verdict::True);
    observed.calls = {{"open", 1, {"-a", "/a"}}, {"mount", 0, {"/b", "/a"}}};
    CHECK(Judged("expect nothing opened", observed).verdict == Verdict::True);
    CHECK(Judged("expect opened \"/a\"", observed).came ==
          "open was called so:\n    open -a /a (failed)");
    observed.calls.push_back({"open", 0, {"-a", "/a"}});
    CHECK(Judged("expect opened \"/a\"", observed).verdict == Verdict::True);
    CHECK(Judged("expect opened \"/a\" 1 times", observed).verdict == Verdict::True);
    CHECK(Judged("expect opened \"/a\" 2 times", observed).verdict == Verdict::NotYet);
    CHECK(Judged("expect nothing opened", observed).verdict == Verdict::Never);
    observed.calls.push_back({"open", 0, {"-a", "/a"}});
    CHECK(Judged("expect opened \"/a\" 1 times", observed).verdict == Verdict::Never);
}

TEST_CASE("folders and files are looked at as they are")
{
    const Observed observed;
    CHECK(Judged("expect folder \"/proc\"", observed).verdict == Verdict::True);
    CHECK(Judged("expect no folder \"/proc\"", observed).verdict == Verdict::NotYet);
    CHECK(Judged("expect folder \"/no such folder\"", observed).verdict == Verdict::NotYet);
    CHECK(Judged("expect no folder \"/proc/self/stat\"", observed).verdict == Verdict::True);
    CHECK(Judged("expect file \"/proc/self/comm\" holds \"modem\"", observed).verdict ==
          Verdict::True);
    CHECK(Judged("expect file \"/no such file\" holds \"x\"", observed).came ==
          "there is no such file, or it is empty");
}

TEST_CASE("claims that something is absent are judged at once")
{
    CHECK(modem::IsJudgedAtOnce(modem::Act::ExpectNoLog));
    CHECK(modem::IsJudgedAtOnce(modem::Act::ExpectNothingOpened));
    CHECK_FALSE(modem::IsJudgedAtOnce(modem::Act::ExpectNothingMounted));
    CHECK_FALSE(modem::IsJudgedAtOnce(modem::Act::ExpectLog));
}

TEST_CASE("recorded calls are taken whole, whatever bytes their arguments hold")
{
    const std::string first = Record({"open", "1", "2", "-a", "/a b\n\"c\""});
    const std::string second = Record({"mount", "0", "3", "", "--", "/x"});
    size_t offset = 0;
    std::vector<Call> calls =
        modem::TakeCalls(first + second.substr(0, second.size() - 2), &offset);
    REQUIRE(calls.size() == 1);
    CHECK(calls[0].program == "open");
    CHECK(calls[0].status == 1);
    CHECK(calls[0].arguments == std::vector<std::string>{"-a", "/a b\n\"c\""});
    CHECK(offset == first.size());
    calls = modem::TakeCalls(first + second, &offset);
    REQUIRE(calls.size() == 1);
    CHECK(calls[0].arguments == std::vector<std::string>{"", "--", "/x"});
    CHECK(offset == first.size() + second.size());
    CHECK(modem::TakeCalls(first + second, &offset).empty());
}

TEST_CASE("a call is shown as a person would type it")
{
    CHECK(modem::CallText({"open", 0, {"-a", "/Volumes/A B/C.app/", ""}}) ==
          "open -a \"/Volumes/A B/C.app/\" \"\"");
}
