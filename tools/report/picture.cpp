#include "tools/report/picture.h"

#include "tools/listing/device_columns.h"
#include "tools/report/markup.h"

using namespace kivclaim::machine;

namespace kivclaim::tools {

namespace {

// In the units of the picture.
constexpr std::size_t boxWidth = 256;
constexpr std::size_t boxHeight = 50;
constexpr std::size_t columnStep = 316;
constexpr std::size_t rowStep = 58;
constexpr std::size_t margin = 6;
constexpr std::size_t placesOfName = 29;
constexpr std::size_t placesOfFacts = 38;

std::string number(std::size_t value)
{
    return std::to_string(value);
}

std::string joined(const std::vector<std::string>& texts, const char* between)
{
    std::string text;
    for (const std::string& one : texts) {
        text += (text.empty() || one.empty() ? "" : between) + one;
    }
    return text;
}

std::string mountsOf(const Device& device)
{
    std::vector<std::string> places(device.mountPoints.begin(), device.mountPoints.end());
    return joined(places, ", ");
}

class Picture {
public:
    Picture(const ReportedMachine& reported, const DeviceStack& stack) : reported(reported), stack(stack) {}

    std::string text(const std::string& label) const
    {
        const std::size_t width = stack.layers * columnStep - (columnStep - boxWidth) + 2 * margin;
        const std::size_t height = stack.places * rowStep - (rowStep - boxHeight) + 2 * margin;
        std::string text = R"(<svg role="group" aria-label=")" + label + "\" viewBox=\"0 0 " + number(width) + " " +
                           number(height) + "\" width=\"" + number(width) + "\" height=\"" + number(height) + "\">\n";
        for (const StackBox& box : stack.boxes) {
            for (const std::size_t below : box.below) {
                text += line(stack.boxes[below], box);
            }
        }
        for (const StackBox& box : stack.boxes) {
            text += box.isMount ? mount(box) : deviceBox(box);
        }
        return text + "</svg>\n";
    }

private:
    const Device& device(const StackBox& box) const { return reported.machine.devices()[box.device]; }

    static std::size_t left(const StackBox& box) { return margin + box.layer * columnStep; }
    static std::size_t top(const StackBox& box) { return margin + box.place * rowStep / 2; }

    std::string line(const StackBox& from, const StackBox& to) const
    {
        const std::string& begin = number(left(from) + boxWidth);
        const std::string& end = number(left(to));
        const std::string middle = number((left(from) + boxWidth + left(to)) / 2);
        const std::string fromY = number(top(from) + boxHeight / 2);
        const std::string toY = number(top(to) + boxHeight / 2);
        const std::string_view state = device(from).state;
        const bool isUp = state.empty() || state == "running" || state == "live";
        return std::string("<path class=\"") + (isUp ? "up" : "down") + "\" d=\"M" + begin + " " + fromY + "C" +
               middle + " " + fromY + " " + middle + " " + toY + " " + end + " " + toY + "\"/>\n";
    }

    static std::string box(const StackBox& box)
    {
        return "<rect x=\"" + number(left(box)) + "\" y=\"" + number(top(box)) + "\" width=\"" + number(boxWidth) +
               "\" height=\"" + number(boxHeight) + R"(" rx="5"/>)";
    }

    static std::string textLine(const StackBox& box, const char* kind, std::size_t y, const std::string& text,
                                std::size_t places)
    {
        return "<text class=\"" + std::string(kind) + "\" x=\"" + number(left(box) + 10) + "\" y=\"" +
               number(top(box) + y) + "\">" + escaped(shortened(text, places)) + "</text>";
    }

    std::string deviceBox(const StackBox& place) const
    {
        const Device& shown = device(place);
        const DeviceAnswer& answer = reported.answers[place.device];
        const bool isMarked = !answer.marks.empty();
        const std::string claim = answer.level == 0 ? "unclaimed" : answer.stack + " " + std::to_string(answer.level);
        const std::string size = sizeText(shown.bytes, false);
        const std::string facts = joined({claim, size, std::string(shown.state)}, " \u00b7 ");
        std::string text = "<a class=\"box s-" + className(answer.stack) + (isMarked ? " marked" : "") +
                           "\" href=\"#d" + number(place.device) + "\">";
        text += element("title", titleOf(shown, answer, facts)) + box(place);
        text += textLine(place, "name", isMarked ? 16 : 21, std::string(shown.node), placesOfName);
        text += textLine(place, "facts", isMarked ? 30 : 38, facts, placesOfFacts);
        if (isMarked) {
            text += textLine(place, "marks", 44, "\u26a0 " + answer.marks, placesOfFacts);
        }
        return text + "</a>\n";
    }

    static std::string titleOf(const Device& shown, const DeviceAnswer& answer, const std::string& facts)
    {
        std::string title = escaped(shown.node) + "\n" + escaped(facts) + "\nkernel name " + escaped(shown.kernelName);
        if (!answer.marks.empty()) {
            title += "\nmarks: " + escaped(answer.marks);
        }
        if (answer.doubt.isThere()) {
            title += "\nunsure because " + escaped(answer.doubt.reason);
        }
        return title;
    }

    std::string mount(const StackBox& place) const
    {
        const std::string places = mountsOf(device(place));
        return "<g class=\"box mount\">" + element("title", "mounted at " + escaped(places)) + box(place) +
               textLine(place, "name", 21, places, placesOfName) +
               textLine(place, "facts", 38, "mounted " + std::string(device(place).fsType), placesOfFacts) + "</g>\n";
    }

    const ReportedMachine& reported;
    const DeviceStack& stack;
};

}  // namespace

std::string pictureOf(const ReportedMachine& reported, const DeviceStack& stack, const std::string& label)
{
    return Picture(reported, stack).text(label);
}

}  // namespace kivclaim::tools
