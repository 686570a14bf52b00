#include "vcamscene.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <utility>

namespace vcam {

namespace {

const std::vector<KindInfo> &catalogue()
{
    // The box offers large MJPEG formats, one NV12 and one YUY2, like the real capture function,
    // then the small slow formats a preview asks for; the others offer less so that format
    // choice has something to choose between.
    static const std::vector<KindInfo> kinds = {
        {Kind::Box,
         "box",
         "TK USB3 Video",
         "a5c0",
         "2132",
         "TK_TK_USB3_Video",
         "TK3V",
         {{Format::Mjpeg, 1920, 1080, 60},
          {Format::Mjpeg, 1280, 720, 30},
          {Format::Mjpeg, 3840, 2160, 30},
          {Format::Nv12, 1920, 1080, 60},
          {Format::Yuy2, 640, 480, 30},
          {Format::Yuy2, 640, 360, 10},
          {Format::Yuy2, 320, 240, 10},
          {Format::Mjpeg, 960, 540, 10}}},
        {Kind::Box2131,
         "box2131",
         "TK USB Video",
         "a5c0",
         "2131",
         "TK_TK_USB_Video",
         "TK2V",
         {{Format::Mjpeg, 1920, 1080, 30},
          {Format::Mjpeg, 1280, 720, 60},
          {Format::Yuy2, 640, 480, 30},
          {Format::Yuy2, 640, 360, 10},
          {Format::Yuy2, 320, 240, 10},
          {Format::Mjpeg, 960, 540, 10}}},
        {Kind::Builtin,
         "builtin",
         "Integrated Camera",
         "04f2",
         "b6dd",
         "Chicony_Integrated_Camera",
         "IC",
         {{Format::Nv12, 1280, 720, 30}, {Format::Yuy2, 640, 480, 30}}},
        {Kind::UsbVideo,
         "usbvideo",
         "USB Video",
         "534d",
         "2109",
         "MACROSILICON_USB_Video",
         "UV",
         {{Format::Mjpeg, 1920, 1080, 30},
          {Format::Mjpeg, 1280, 720, 30},
          {Format::Yuy2, 640, 480, 30}}},
    };
    return kinds;
}

std::string_view trimmed(std::string_view s)
{
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!s.empty() && blank(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && blank(s.back()))
        s.remove_suffix(1);
    return s;
}

bool validSerial(std::string_view serial)
{
    if (serial.empty() || serial.size() > kMaxSerialLength)
        return false;
    return std::all_of(serial.begin(), serial.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '.' || c == '_' || c == '-';
    });
}

// Port digits without sign or blanks; 0 when the text is not a port.
int parsePort(std::string_view text)
{
    if (text.empty() || text.size() > 2)
        return 0;
    int port = 0;
    for (char c : text) {
        if (c < '0' || c > '9')
            return 0;
        port = port * 10 + (c - '0');
    }
    return port <= kMaxPort ? port : 0;
}

SceneParse rejected(std::string error)
{
    SceneParse result;
    result.error = std::move(error);
    return result;
}

// The entries of the text with comments removed; an empty entry between separators is kept (as
// empty) so that it can be rejected, trailing separators are not.
std::vector<std::string_view> splitEntries(std::string_view text)
{
    std::vector<std::string_view> entries;
    std::size_t lineStart = 0;
    while (lineStart <= text.size()) {
        std::size_t lineEnd = text.find('\n', lineStart);
        if (lineEnd == std::string_view::npos)
            lineEnd = text.size();
        std::string_view line = text.substr(lineStart, lineEnd - lineStart);
        line = line.substr(0, line.find('#'));
        if (!trimmed(line).empty()) {
            std::size_t start = 0;
            while (true) {
                const std::size_t comma = line.find(',', start);
                const std::string_view entry = trimmed(line.substr(
                    start, comma == std::string_view::npos ? line.size() - start : comma - start));
                const bool last = comma == std::string_view::npos;
                if (!(last && entry.empty()))
                    entries.push_back(entry);
                if (last)
                    break;
                start = comma + 1;
            }
        }
        lineStart = lineEnd + 1;
    }
    return entries;
}

} // namespace

const KindInfo &kindInfo(Kind kind)
{
    for (const KindInfo &info : catalogue()) {
        if (info.kind == kind)
            return info;
    }
    return catalogue().front();
}

const KindInfo *findKind(std::string_view word)
{
    for (const KindInfo &info : catalogue()) {
        if (word == info.word)
            return &info;
    }
    return nullptr;
}

SceneParse parseScene(std::string_view text)
{
    SceneParse result;
    std::map<Kind, int> unnamed;
    // Whether every camera of this kind and serial so far named its port.
    std::map<std::pair<Kind, std::string>, bool> identities;
    std::set<int> ports;
    for (std::string_view entry : splitEntries(text)) {
        const std::string quoted = "'" + std::string(entry) + "'";
        if (entry.empty())
            return rejected("empty entry");

        std::string_view portText;
        const std::size_t at = entry.find('@');
        if (at != std::string_view::npos) {
            portText = entry.substr(at + 1);
            entry = entry.substr(0, at);
        }
        std::string_view serial;
        const std::size_t colon = entry.find(':');
        bool hasSerial = false;
        if (colon != std::string_view::npos) {
            serial = entry.substr(colon + 1);
            entry = entry.substr(0, colon);
            hasSerial = true;
        }

        const KindInfo *info = findKind(entry);
        if (!info)
            return rejected("unknown camera kind in " + quoted +
                            " (known: box, box2131, builtin, usbvideo)");
        DeviceSpec spec;
        spec.kind = info->kind;
        if (hasSerial) {
            if (!validSerial(serial))
                return rejected("bad serial in " + quoted + " (1 to 64 of A-Z a-z 0-9 . _ -)");
            spec.serial = std::string(serial);
        } else {
            char ordinal[8];
            std::snprintf(ordinal, sizeof ordinal, "%04d", ++unnamed[info->kind] % 10000);
            spec.serial = std::string(info->serialPrefix) + ordinal;
        }
        if (at != std::string_view::npos) {
            spec.port = parsePort(portText);
            if (spec.port < 1)
                return rejected("bad port in " + quoted + " (1 to 99)");
            if (!ports.insert(spec.port).second)
                return rejected("port of " + quoted + " is taken by an earlier camera");
        }
        // Cheap boxes often share one serial; two such cameras are told apart by their ports.
        const bool hasPort = spec.port > 0;
        const auto [seen, added] = identities.insert({{spec.kind, spec.serial}, hasPort});
        if (!added && !(seen->second && hasPort))
            return rejected("camera " + quoted + " is listed twice (give each one its @port)");
        result.devices.push_back(std::move(spec));
    }
    result.ok = true;
    return result;
}

std::vector<DeviceSpec> defaultScene()
{
    return parseScene("box").devices;
}

std::vector<Placement> placeDevices(const std::vector<PlacedDevice> &current,
                                    const std::vector<DeviceSpec> &wanted)
{
    std::vector<Placement> placements(wanted.size());
    std::vector<bool> kept(current.size(), false);
    std::set<int> asked;
    for (const DeviceSpec &spec : wanted) {
        if (spec.port > 0)
            asked.insert(spec.port);
    }
    const auto keep = [&](std::size_t w, bool portMustMatch) {
        for (std::size_t c = 0; c < current.size(); ++c) {
            const PlacedDevice &now = current[c];
            if (kept[c] || now.spec.kind != wanted[w].kind || now.spec.serial != wanted[w].serial)
                continue;
            // A camera on a port that another entry asks for has to move: it is plugged anew.
            if (portMustMatch ? now.port != wanted[w].port : asked.count(now.port) > 0)
                continue;
            kept[c] = true;
            placements[w].previous = int(c);
            placements[w].device = {wanted[w], now.port};
            return;
        }
    };
    // Entries with a port first, so that one without a port cannot take a camera from them.
    for (std::size_t w = 0; w < wanted.size(); ++w) {
        if (wanted[w].port > 0)
            keep(w, true);
    }
    for (std::size_t w = 0; w < wanted.size(); ++w) {
        if (wanted[w].port == 0)
            keep(w, false);
    }

    std::set<int> taken;
    for (std::size_t w = 0; w < wanted.size(); ++w) {
        if (placements[w].previous >= 0)
            taken.insert(placements[w].device.port);
        else if (wanted[w].port > 0)
            taken.insert(wanted[w].port);
    }
    for (std::size_t w = 0; w < wanted.size(); ++w) {
        if (placements[w].previous >= 0)
            continue;
        int port = wanted[w].port;
        if (port == 0) {
            port = 1;
            while (taken.count(port))
                ++port;
            taken.insert(port);
        }
        placements[w].device = {wanted[w], port};
    }
    return placements;
}

std::string busPath(int port)
{
    return "usb-0000:00:14.0-" + std::to_string(port);
}

std::string devicePath(const DeviceSpec &spec)
{
    return std::string("/dev/v4l/by-id/usb-") + kindInfo(spec.kind).pathName + "_" + spec.serial +
           "-video-index0";
}

} // namespace vcam
