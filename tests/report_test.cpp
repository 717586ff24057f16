// `kivclaim report`: what its page holds.
#include "tests/captured_root.h"
#include "tests/process.h"
#include "tests/sysfs_directory.h"

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using tests::Ended;

namespace {

Ended kivclaim(std::vector<std::string> arguments)
{
    return tests::Process(KIVCLAIM_COMMAND, std::move(arguments)).environment("LC_ALL", "C").run();
}

std::string contentOf(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::size_t count(const std::string& text, const std::string& what)
{
    std::size_t found = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) {
        ++found;
    }
    return found;
}

class Report : public testing::Test {
protected:
    Report()
    {
        machine.file("kivclaim/commands/sbin/lvdisplay/output", "");
        machine.file("proc/sys/kernel/osrelease", "6.1.0-test\n");
        machine.scsiDisk("sda", "0:0:0:1", "naa.6001").scsiDisk("sdb", "1:0:0:1", "naa.6001");
        machine.multipathMap("dm-0", "mpatha", "36001", {"sda", "sdb"}).multipathPartition("dm-1", "dm-0", 1);
        machine.scsiDisk("sdc", "0:0:0:2", "naa.6002");
    }

    std::string page() const
    {
        const Ended ended = kivclaim({"--sysroot", root.path(), "report", "-o", "-"});
        EXPECT_EQ(ended.errors, "");
        EXPECT_EQ(ended.status, 0);
        return ended.output;
    }

    tests::TemporaryFolder root;
    tests::TemporaryFolder place;
    tests::SysfsDirectory machine{root.path()};
};

}  // namespace

TEST_F(Report, ShowsEachDeviceAsALinkWithTheColorOfItsStackAndItsMarks)
{
    const std::string text = page();
    EXPECT_THAT(text, ContainsRegex("<a class=\"box s-native marked\" href=\"#d[0-9]+\"><title>/dev/sda\n"
                                    "native 2 [^\n]*\nkernel name sda\nmarks: path-of-a-map</title>"));
    EXPECT_THAT(text, ContainsRegex("<a class=\"box s-native\" href=\"#d[0-9]+\"><title>/dev/sdc\n"));
    EXPECT_THAT(text, ContainsRegex("<a class=\"box s-device-mapper\" href=\"#d[0-9]+\"><title>/dev/mapper/mpatha\n"));
    EXPECT_EQ(count(text, "<a class=\"box "), 5U);
    EXPECT_EQ(count(text, "<path class=\"up\""), 3U);
}

TEST_F(Report, EveryLinkLeadsToAPartOfThePage)
{
    const std::string text = page();
    const std::regex link("href=\"#([^\"]+)\"");
    std::size_t links = 0;
    for (std::sregex_iterator i(text.begin(), text.end(), link), end; i != end; ++i, ++links) {
        EXPECT_EQ(count(text, " id=\"" + (*i)[1].str() + "\""), 1U) << (*i)[1];
    }
    EXPECT_GT(links, 8U);
}

TEST_F(Report, APathThatIsDownHasAnotherLine)
{
    machine.attribute("sdb", "device/state", "offline\n");
    const std::string text = page();
    EXPECT_EQ(count(text, "<path class=\"up\""), 2U);
    EXPECT_EQ(count(text, "<path class=\"down\""), 1U);
}

TEST_F(Report, ShowsWhereADeviceIsMounted)
{
    machine.mount("dm-1", "/srv/data");
    const std::string text = page();
    EXPECT_THAT(text, HasSubstr("<g class=\"box mount\"><title>mounted at /srv/data</title>"));
    EXPECT_EQ(count(text, "<path class=\"up\""), 4U);
}

TEST_F(Report, HasLunsAuditAndVersions)
{
    const std::string text = page();
    EXPECT_THAT(
        text, ContainsRegex("<tr><th scope=\"row\">36001</th><td><data value=\"[0-9]+\">[^<]*</data></td>"
                            "<td>Maker</td><td>Virtual disk</td><td><a href=\"#d[0-9]+\">/dev/mapper/mpatha</a></td>"));
    EXPECT_THAT(text, HasSubstr("<td>quirk</td><td>path-of-a-map</td><td>the names are disks&#39;; that "
                                "/dev/mapper/mpatha uses them does not count</td>"));
    EXPECT_THAT(text, HasSubstr("<th scope=\"row\">kernel</th><td>6.1.0-test</td>"));
}

TEST_F(Report, NamesAreNoMarkup)
{
    machine.mapping("dm-2", "<script>alert(1)</script>", "CRYPT-a-b", {"sdc"});
    machine.mapping("dm-3", "a\"onclick='x'&amp;", "CRYPT-c-d", {"sdc"});
    machine.mount("dm-2", "/srv/<b>bold</b>");
    const std::string text = page();
    EXPECT_EQ(count(text, "<script>"), 1U);
    EXPECT_EQ(count(text, "</script>"), 1U);
    EXPECT_THAT(text, HasSubstr("/dev/mapper/&lt;script&gt;alert(1)&lt;/script&gt;"));
    EXPECT_THAT(text, HasSubstr("/dev/mapper/a&quot;onclick=&#39;x&#39;&amp;amp;"));
    EXPECT_THAT(text, HasSubstr("/srv/&lt;b&gt;bold&lt;/b&gt;"));
    EXPECT_THAT(text, Not(HasSubstr("<b>bold")));
}

TEST_F(Report, ControlCharactersAreShownAsSuch)
{
    machine.mapping("dm-2", "x\x1b[31m\xff", "CRYPT-a-b", {"sdc"});
    const std::string text = page();
    EXPECT_THAT(text, HasSubstr("/dev/mapper/x\\x1b[31m\\xff"));
    EXPECT_THAT(text, Not(HasSubstr("\x1b")));
}

TEST_F(Report, LoadsNothingAndRunsNothingButItsOwnScript)
{
    const std::string text = page();
    EXPECT_THAT(text, ContainsRegex("Content-Security-Policy\" content=\"default-src 'none'; script-src "
                                    "'sha256-[A-Za-z0-9+/]{43}='; style-src 'sha256-[A-Za-z0-9+/]{43}='; "
                                    "base-uri 'none'; form-action 'none'\">"));
    for (const char* const loading : {"http:", "https:", " src=", "url(", "@import", " style=",
                                      " on"
                                      "click="}) {
        EXPECT_THAT(text, Not(HasSubstr(loading))) << loading;
    }
}

TEST_F(Report, CanBeReadByAScreenReader)
{
    const std::string text = page();
    EXPECT_THAT(text, HasSubstr("<html lang=\"en\">"));
    EXPECT_EQ(count(text, "<main>"), 1U);
    EXPECT_THAT(text, HasSubstr("<nav aria-label=\"Parts of this report\">"));
    EXPECT_EQ(count(text, "<table"), count(text, "<caption>"));
    EXPECT_EQ(count(text, "<svg "), count(text, "<svg role=\"group\" aria-label=\"Picture of "));
    EXPECT_EQ(count(text, "<th>"), 0U) << "a head without a scope";
}

TEST_F(Report, HasStylesForPaperAndForTheDark)
{
    EXPECT_THAT(page(), AllOf(HasSubstr("@media print {"), HasSubstr("@media (prefers-color-scheme: dark) {"),
                              HasSubstr(":focus-visible {")));
}

TEST_F(Report, ManyDevicesAreFolded)
{
    EXPECT_EQ(count(page(), "<details open"), 2U);
    for (int i = 0; i < 150; ++i) {
        machine.virtualDisk("loop" + std::to_string(i));
    }
    const std::string text = page();
    EXPECT_EQ(count(text, "<details open"), 0U);
    EXPECT_THAT(text, HasSubstr("<b>Devices that nothing is stacked on</b> <span class=\"counts\">151 devices"));
}

TEST_F(Report, AnUnsureAnswerIsShownAndMakesTheStatusThree)
{
    machine.remove("kivclaim");
    machine.volume("dm-2", "vg-lv", {"sdc"});
    const Ended ended = kivclaim({"--sysroot", root.path(), "report", "-o", "-"});
    EXPECT_THAT(ended.errors, HasSubstr("unsure"));
    EXPECT_THAT(ended.output, HasSubstr("\nunsure because "));
    EXPECT_EQ(ended.status, 3);
}

TEST_F(Report, IsWrittenCompletelyAndReadableByThisUserOnly)
{
    const std::string path = place.path() + "/machine.html";
    place.addFile("machine.html", "before");
    const Ended ended = kivclaim({"--sysroot", root.path(), "report", "-o", path});
    EXPECT_EQ(ended.output + ended.errors, "");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(contentOf(path), page());
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(place.path()), {}), 1);
}

TEST_F(Report, AFailureKeepsTheEarlierFile)
{
    place.addFile("machine.html", "before");
    const Ended ended = kivclaim({"--sysroot", "/no/such", "report", "-o", place.path() + "/machine.html"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(contentOf(place.path() + "/machine.html"), "before");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(place.path()), {}), 1);
}

TEST_F(Report, IsNotWrittenToADeviceOrAMissingDirectory)
{
    EXPECT_EQ(kivclaim({"--sysroot", root.path(), "report", "-o", "/dev/null"}).errors,
              "kivclaim: '/dev/null' is no file; give a new name, or - for standard output\n");
    const Ended ended = kivclaim({"--sysroot", root.path(), "report", "-o", place.path() + "/none/machine.html"});
    EXPECT_THAT(ended.errors, AllOf(HasSubstr("cannot write the report '"),
                                    HasSubstr("No such file or directory); give a name in a directory")));
    EXPECT_EQ(ended.status, 2);
}

TEST_F(Report, OfARecordingShowsWhenAndWithWhatItWasMade)
{
    const std::string recording = place.path() + "/machine.tar.zst";
    ASSERT_EQ(kivclaim({"--sysroot", root.path(), "record", "--redact", recording}).status, 0);
    const Ended ended = kivclaim({"--sysroot", recording, "report", "-o", "-"});
    EXPECT_THAT(ended.output, ContainsRegex("machine.tar.zst, <time>20[0-9-]+T[0-9:]+Z</time>, with stand-ins for"));
    EXPECT_THAT(ended.output, HasSubstr("<th scope=\"row\">kivclaim that recorded</th>"));
    EXPECT_THAT(ended.output, Not(HasSubstr("mpatha")));
}

TEST_F(Report, OfThisMachineHasItsName)
{
    const Ended ended = kivclaim({"report", "-o", "-"});
    EXPECT_THAT(ended.output, HasSubstr("From this machine, <time>"));
}

TEST(ReportOfTheLab, ShowsADiagramOfAllItsDevices)
{
    const tests::CapturedRoot lab("bookworm");
    const Ended ended = kivclaim({"--sysroot", lab.path(), "report", "-o", "-"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(count(ended.output, "<a class=\"box "), 46U);
    EXPECT_EQ(count(ended.output, "<g class=\"box mount\">"), 2U);
    EXPECT_THAT(ended.output, HasSubstr("<p>46 devices, 24 marked, 9 LUNs. From "));
}

#ifdef CHROMIUM

// Opens the page in a frame and drives it as a reader would: the result is what `script` gives. It sees the page as
// `page`.
std::string inBrowser(const std::string& directory, const std::string& page, const std::string& script)
{
    std::ofstream(directory + "/report.html") << page;
    std::ofstream(directory + "/driver.html")
        << "<!DOCTYPE html><iframe id=f width=1200 height=800></iframe><pre id=result></pre><script>"
           "const frame = document.getElementById('f'); frame.onload = () => { const page = frame.contentDocument; "
           "document.getElementById('result').textContent = JSON.stringify((() => {"
        << script << "})()); }; frame.src = 'report.html';</script>";
    const Ended ended =
        tests::Process(CHROMIUM, {"--headless=new", "--no-sandbox", "--disable-gpu", "--allow-file-access-from-files",
                                  "--disable-web-security", "--user-data-dir=" + directory + "/profile",
                                  "--timeout=60000", "--dump-dom", "file://" + directory + "/driver.html"})
            .environment("HOME", directory)
            .run();
    std::smatch found;
    return std::regex_search(ended.output, found, std::regex("<pre id=\"result\">([^<]*)</pre>")) ? found[1].str()
                                                                                                  : ended.errors;
}

TEST_F(Report, InABrowserFiltersLuns)
{
    EXPECT_EQ(inBrowser(place.path(), page(),
                        "const form = page.querySelector('#luns form'); const input = form.querySelector('input');"
                        "const isThere = !form.hidden; input.value = '6002'; input.dispatchEvent(new Event('input', "
                        "{bubbles: true})); return [isThere, form.querySelector('[role=status]').textContent, "
                        "page.querySelector('#luns tbody tr:not([hidden]) th').textContent];"),
              "[true,\"1 of 2 shown\",\"36002\"]");
}

TEST_F(Report, InABrowserSortsBySizeWithAButton)
{
    machine.attribute("dm-0", "size", "4096\n").attribute("sdc", "size", "2097152\n");
    EXPECT_EQ(inBrowser(place.path(), page(),
                        "const head = page.querySelectorAll('#luns thead th')[1]; const order = () => "
                        "Array.from(page.querySelectorAll('#luns tbody th'), (cell) => cell.textContent).join();"
                        "const all = []; for (let i = 0; i < 2; ++i) { head.querySelector('button').click(); "
                        "all.push(head.getAttribute('aria-sort'), order()); } return all;"),
              "[\"ascending\",\"36001,36002\",\"descending\",\"36002,36001\"]");
}

TEST_F(Report, InABrowserABoxShowsItsDetailsAndEscapeGoesBack)
{
    EXPECT_EQ(inBrowser(place.path(), page(),
                        "const box = Array.from(page.querySelectorAll('a.box')).find((one) => "
                        "one.textContent.startsWith('/dev/mapper/mpatha\\n')); box.dispatchEvent(new "
                        "MouseEvent('click', {bubbles: true, cancelable: true, view: page.defaultView}));"
                        "const panel = page.getElementById('details'); const before = [panel.hidden, "
                        "panel.querySelector('h2').textContent, page.activeElement.id];"
                        "page.dispatchEvent(new KeyboardEvent('keydown', {key: 'Escape'}));"
                        "return [...before, panel.hidden, page.activeElement === box];"),
              "[false,\"/dev/mapper/mpatha\",\"details\",true,true]");
}

TEST_F(Report, InABrowserANameIsText)
{
    machine.mapping("dm-2", "<script>alert(1)</script>", "CRYPT-a-b", {"sdc"});
    EXPECT_EQ(inBrowser(place.path(), page(),
                        "return [page.scripts.length, Array.from(page.querySelectorAll('svg .name')).filter((one) => "
                        "one.textContent.startsWith('/dev/mapper/' + '<s')).length];"),
              "[1,1]");
}

#endif
