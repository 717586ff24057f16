#include "tools/report/page.h"

#include "tools/listing/device_columns.h"
#include "tools/listing/device_tree.h"
#include "tools/report/markup.h"
#include "tools/report/page_parts.h"
#include "tools/report/picture.h"
#include "tools/report/stacks.h"
#include "tools/stack_table.h"

#include <algorithm>
#include <set>

using namespace kivclaim::machine;

namespace kivclaim::tools {

namespace {

// Beyond, pictures are folded, so that the page opens at once.
constexpr std::size_t mostOpenDevices = 150;

std::string counted(std::size_t count, const std::string& one)
{
    return std::to_string(count) + " " + one + (count == 1 ? "" : "s");
}

std::string marked(const std::string& marks)
{
    return marks.empty() ? "" : "<span class=\"marks\">\u26a0 " + escaped(marks) + "</span>";
}

std::string stackName(const std::string& stack)
{
    return "<span class=\"stack s-" + className(stack) + "\">" + escaped(stack) + "</span>";
}

std::string section(const std::string& id, const std::string& heading, const std::string& content)
{
    return "<section id=\"" + id + "\" aria-labelledby=\"" + id + "-heading\">\n<h2 id=\"" + id + "-heading\">" +
           heading + "</h2>\n" + content + "</section>\n";
}

// Shown by the script, which does the work.
std::string filterOf(const std::string& items, const std::string& id, const std::string& what)
{
    return R"(<form class="filter" role="search" aria-label="Filter the )" + what + "\" data-items=\"" + items +
           "\" hidden><label>Show " + what + R"( with <input type="search" name=")" + id +
           "\" autocomplete=\"off\" placeholder=\"any text\"></label> "
           "<label><input type=\"checkbox\"> marked only</label> <span role=\"status\"></span></form>\n";
}

std::string scrolled(const std::string& label, const std::string& table)
{
    return R"(<div class="scrolled" role="region" tabindex="0" aria-label=")" + label + "\">" + table + "</div>\n";
}

// What the listing says of a stack's devices: what matters most in columns, what else there is in one more.
class DeviceTable {
public:
    DeviceTable(const ReportedMachine& reported, const DeviceStack& stack) : reported(reported), stack(stack) {}

    std::string text(const std::string& caption) const
    {
        std::vector<std::string> heads;
        for (const std::size_t column : mainColumns()) {
            heads.emplace_back(deviceColumn(column).head.name);
        }
        heads.emplace_back("FACTS");
        std::string table = "<table>" + tableHead(caption, heads) + "<tbody>\n";
        for (const StackBox& box : stack.boxes) {
            if (!box.isMount) {
                table += tableRow("id=\"d" + std::to_string(box.device) + "\"", cellsOf(box.device));
            }
        }
        return table + "</tbody></table>";
    }

private:
    static const std::vector<std::size_t>& mainColumns()
    {
        static const std::vector<std::size_t> columns = [] {
            std::vector<std::size_t> places;
            const KnownColumns known = knownDeviceColumns();
            for (const char* const name : {"DEVICE", "STACK", "MARK"}) {
                places.push_back(columnNamed(known, name));
            }
            return places;
        }();
        return columns;
    }

    std::vector<std::string> cellsOf(DeviceIndex index) const
    {
        const Device& device = reported.machine.devices()[index];
        const std::vector<DeviceIndex> parents = kernelParents(device);
        const DeviceRow row = {reported.machine, device, reported.answers[index],
                               parents.empty() ? noDevice : parents.front(), false};
        std::vector<std::string> cells;
        for (const std::size_t column : mainColumns()) {
            const std::string text = deviceColumn(column).text(row);
            cells.push_back(column == deviceColumnOfStack   ? stackName(text)
                            : column == deviceColumnOfMarks ? marked(text)
                                                            : escaped(text));
        }
        cells.push_back(moreOf(row));
        return cells;
    }

    static std::string moreOf(const DeviceRow& row)
    {
        std::string more;
        for (std::size_t column = 0; column <= deviceColumnOfDoubt; ++column) {
            const DeviceColumn& other = deviceColumn(column);
            const bool isMain = std::count(mainColumns().begin(), mainColumns().end(), column) != 0;
            std::string text = isMain ? "" : other.text(row);
            if (other.head.type == ColumnType::list) {
                std::replace(text.begin(), text.end(), '\n', ' ');
            }
            if (!text.empty() && (other.head.type != ColumnType::flag || text != "0")) {
                more += (more.empty() ? "" : "; ") + std::string(other.head.name) + " " + escaped(text);
            }
        }
        return more;
    }

    const ReportedMachine& reported;
    const DeviceStack& stack;
};

class Page {
public:
    explicit Page(const ReportedMachine& reported)
        : reported(reported), host(escaped(reported.origin.host)), stacks(stacksOf(reported))
    {
    }

    std::string text() const
    {
        return "<!DOCTYPE html>\n<html lang=\"en\">\n" + head() + "<body>\n" + header() + "<main>\n" + pictures() +
               luns() + audit() + origin() + "</main>\n" + panel() + "<script>" + pageScript +
               "</script>\n</body>\n</html>\n";
    }

private:
    std::string head() const
    {
        return "<head>\n<meta charset=\"utf-8\">\n<meta http-equiv=\"Content-Security-Policy\" content=\"default-src "
               "'none'; script-src " +
               policyHash(pageScript) + "; style-src " + policyHash(pageStyle) +
               "; base-uri 'none'; form-action 'none'\">\n<meta name=\"viewport\" content=\"width=device-width, "
               "initial-scale=1\">\n<title>Block devices of " +
               host + "</title>\n<style>" + pageStyle + "</style>\n</head>\n";
    }

    std::string header() const
    {
        const auto isMarked = [&](DeviceIndex device) { return !reported.answers[device].marks.empty(); };
        const auto marks = std::count_if(reported.devices.begin(), reported.devices.end(), isMarked);
        std::string text = "<header>\n<h1>Block devices of " + host + "</h1>\n<p>" +
                           counted(reported.devices.size(), "device") + ", " + std::to_string(marks) + " marked, " +
                           counted(reported.luns.rows.size(), "LUN") + ". From " + escaped(reported.origin.source);
        text += reported.origin.time.empty() ? "" : ", <time>" + escaped(reported.origin.time) + "</time>";
        text += reported.origin.isRedacted ? ", with stand-ins for names." : ".";
        return text +
               "</p>\n<nav aria-label=\"Parts of this report\"><a href=\"#devices\">Devices</a> <a "
               "href=\"#luns\">LUNs</a> <a href=\"#audit\">Audit</a> <a href=\"#versions\">Versions</a></nav>\n"
               "</header>\n";
    }

    std::string legend() const
    {
        std::set<std::string> others;
        for (const DeviceIndex device : reported.devices) {
            others.insert(reported.answers[device].stack);
        }
        std::string text = R"(<ul class="legend" aria-label="Colors">)";
        for (const Stack* const stack : stackTable) {
            others.erase(stack->name);
            text += element("li", stackName(stack->name));
        }
        others.insert(noStack);
        for (const std::string& stack : others) {
            text += element("li", stackName(stack));
        }
        return text +
               "<li><span class=\"marks\">\u26a0 marked</span></li><li><span class=\"failed\">- - -</span> a path "
               "that is not running</li></ul>\n";
    }

    std::string pictures() const
    {
        std::string text =
            "<p>What a device is made of is on its left, what is on it on its right. Each box leads to all that is "
            "known of its device.</p>\n" +
            legend();
        const bool isOpen = reported.devices.size() <= mostOpenDevices;
        text += filterOf("#stacks > details", "stacks", "stacks");
        text += "<div id=\"stacks\">\n";
        for (const DeviceStack& stack : stacks) {
            text += pictureWithTable(stack, isOpen);
        }
        return section("devices", "Devices and what is stacked on them", text + "</div>\n");
    }

    // The map of a stack if there is one, as people know it by that.
    std::string labelOf(const DeviceStack& stack) const
    {
        if (&stack == &stacks.back() && stack.boxes.size() > 1 && isWithoutLines(stack)) {
            return "Devices that nothing is stacked on";
        }
        DeviceIndex best = stack.boxes.front().device;
        for (const StackBox& box : stack.boxes) {
            if (isMap(box.device) && !isMap(best)) {
                best = box.device;
            }
        }
        return escaped(reported.machine.devices()[best].node);
    }

    bool isMap(DeviceIndex device) const
    {
        const Kind kind = reported.machine.devices()[device].kind;
        return kind == Kind::multipathMap || kind == Kind::powerPath;
    }

    static bool isWithoutLines(const DeviceStack& stack)
    {
        return std::all_of(stack.boxes.begin(), stack.boxes.end(),
                           [](const StackBox& box) { return box.below.empty(); });
    }

    std::string pictureWithTable(const DeviceStack& stack, bool isOpen) const
    {
        const std::string label = labelOf(stack);
        std::size_t devices = 0;
        std::size_t marks = 0;
        for (const StackBox& box : stack.boxes) {
            devices += box.isMount ? 0 : 1;
            marks += !box.isMount && !reported.answers[box.device].marks.empty() ? 1 : 0;
        }
        std::string text = std::string("<details") + (isOpen ? " open" : "") + (marks != 0 ? " data-marked" : "") +
                           "><summary><b>" + label + "</b> <span class=\"counts\">" + counted(devices, "device");
        text += marks != 0 ? ", <span class=\"marks\">\u26a0 " + std::to_string(marks) + " marked</span>" : "";
        text += "</span></summary>\n";
        text += "<div class=\"scrolled\">" + pictureOf(reported, stack, "Picture of " + label) + "</div>\n";
        return text + "<details><summary>All that is known of " + (devices == 1 ? "it" : "them") + "</summary>\n" +
               scrolled("Devices of the picture of " + label,
                        DeviceTable(reported, stack).text("Devices of the picture of " + label)) +
               "</details></details>\n";
    }

    // The last column says why answers are unsure, where any is.
    std::size_t lunColumnsShown() const
    {
        const std::size_t all = reported.luns.columns.size();
        const bool isUnsure = std::any_of(reported.luns.rows.begin(), reported.luns.rows.end(),
                                          [](const LunRows::Row& row) { return !row.texts.back().empty(); });
        return isUnsure ? all : all - 1;
    }

    std::string luns() const
    {
        const std::size_t shown = lunColumnsShown();
        const std::vector<std::string> heads(reported.luns.columns.begin(),
                                             reported.luns.columns.begin() + static_cast<std::ptrdiff_t>(shown));
        std::string table = "<table class=\"sortable\">" +
                            tableHead("One row for each LUN, with the device to use", heads) + "<tbody>\n";
        for (const LunRows::Row& row : reported.luns.rows) {
            std::vector<std::string> cells;
            for (std::size_t i = 0; i < shown; ++i) {
                cells.push_back(lunCell(row, reported.luns.columns[i], row.texts[i]));
            }
            table += tableRow(row.isMarked ? "data-marked" : "", cells);
        }
        return section(
            "luns", "LUNs",
            filterOf("#luns tbody tr", "lun", "LUNs") + scrolled("Table of LUNs", table + "</tbody></table>"));
    }

    static std::string lunCell(const LunRows::Row& row, const std::string& column, const std::string& text)
    {
        if (column == "STACK") {
            return stackName(text);
        }
        if (column == "MARK") {
            return marked(text);
        }
        if (column == "DEVICE") {
            return "<a href=\"#d" + std::to_string(row.device) + "\">" + escaped(text) + "</a>";
        }
        if (column == "SIZE") {
            return "<data value=\"" + std::to_string(row.bytes) + "\">" + escaped(text) + "</data>";
        }
        return column == "PARTITIONS" || column == "MOUNTPOINTS" ? escapedLines(text) : escaped(text);
    }

    std::string audit() const
    {
        std::string text = element("p", escaped(reported.audit.summary) + ".") + "\n";
        if (!reported.audit.rows.empty()) {
            text += filterOf("#audit tbody tr", "audit", "differences") +
                    scrolled("Table of differences", "<table class=\"sortable\">" +
                                                         tableHead("Answers of the library that are not the kernel's",
                                                                   {auditColumns.begin(), auditColumns.end()}) +
                                                         "<tbody>\n" + auditRows() + "</tbody></table>");
        }
        return section("audit", "Audit", text);
    }

    // Marked are those that no known quirk explains.
    std::string auditRows() const
    {
        std::string text;
        for (const AuditRow& row : reported.audit.rows) {
            std::vector<std::string> cells;
            std::transform(row.begin(), row.end(), std::back_inserter(cells), escaped);
            text += tableRow(row[5].empty() ? "data-marked" : "", cells);
        }
        return text;
    }

    std::string origin() const
    {
        std::string table =
            "<table>" + tableHead("Versions of what the answers come from", {"Program", "Version"}) + "<tbody>\n";
        for (const auto& [program, version] : reported.origin.versions) {
            table += tableRow("", {escaped(program), escaped(version)});
        }
        return section("versions", "Versions", scrolled("Versions", table + "</tbody></table>"));
    }

    static std::string panel()
    {
        return "<aside id=\"details\" aria-labelledby=\"details-heading\" tabindex=\"-1\" hidden><button "
               "type=\"button\">Close</button><h2 id=\"details-heading\"></h2><dl></dl></aside>\n";
    }

    const ReportedMachine& reported;
    std::string host;
    std::vector<DeviceStack> stacks;
};

}  // namespace

std::string pageOf(const ReportedMachine& reported)
{
    return Page(reported).text();
}

}  // namespace kivclaim::tools
