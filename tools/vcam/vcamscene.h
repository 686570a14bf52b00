#pragma once

// The virtual camera's scene: which cameras are plugged in, what each one is, and where it sits.
// Plain C++ without GStreamer, so the rules can be tested on their own.

#include <string>
#include <string_view>
#include <vector>

namespace vcam {

enum class Kind { Box, Box2131, Builtin, UsbVideo };

struct Format
{
    enum Type { Mjpeg, Nv12, Yuy2 };
    Type type;
    int width;
    int height;
    int fps;
};

// Everything fixed about one kind of camera.
struct KindInfo
{
    Kind kind;
    const char *word;        // name of the kind in a scene ("box", "builtin", ...)
    const char *displayName; // what the system shows as the camera's name
    const char *vendorId;    // four lower-case hex digits
    const char *productId;
    const char *pathName;        // manufacturer_product part of the by-id path
    const char *serialPrefix;    // default serials are this plus a 4-digit ordinal
    std::vector<Format> formats; // in the order the camera announces them
};

const KindInfo &kindInfo(Kind kind);
// The kind named by `word` (exact, lower case), or nullptr.
const KindInfo *findKind(std::string_view word);

// One camera as a scene names it. port 0 means "the lowest free port".
struct DeviceSpec
{
    Kind kind = Kind::Box;
    std::string serial; // kNoSerial: the camera reports none
    int port = 0;
};

constexpr int kMaxPort = 99;
// The serial of a camera that reports none ("box:-@2"): such cameras differ only by port.
constexpr const char *kNoSerial = "-";
constexpr std::size_t kMaxSerialLength = 64;

struct SceneParse
{
    bool ok = false;
    std::vector<DeviceSpec> devices; // only meaningful when ok
    std::string error;               // why the text was rejected
};

// Parses entries "kind[:serial][@port]" separated by ',' or line breaks; blanks around entries are
// ignored, '#' starts a comment up to the end of the line. Text with no entries is an empty scene
// (nothing plugged in). Missing serials become the kind's prefix plus the entry's ordinal among
// entries of that kind without a serial ("TK3V0001", "TK3V0002"); the serial kNoSerial makes a
// camera that reports no USB serial number at all. Rejects unknown kinds, empty
// entries between separators, serials outside [A-Za-z0-9._-] or longer than kMaxSerialLength,
// ports outside 1..kMaxPort, two on one port, and two cameras with the same kind and serial unless
// each of them names its port (boxes that share one serial number).
SceneParse parseScene(std::string_view text);

// One box with the default serial: what runs when nothing, or something malformed, is asked for.
std::vector<DeviceSpec> defaultScene();

// A camera that is plugged in, with the port it ended up on.
struct PlacedDevice
{
    DeviceSpec spec;
    int port = 0;
};

struct Placement
{
    PlacedDevice device;
    int previous = -1; // index of the same camera in the current list, -1 when newly plugged
};

// Places the cameras of a new scene, in its order, given the ones plugged in now. A camera stays
// plugged (same port) when an entry names its kind and serial and either its port, or no port
// while no other entry asks for that port; every other entry is newly plugged, on its own port or
// the lowest port no other camera of the new scene holds. Current cameras that no placement
// refers to are unplugged.
std::vector<Placement> placeDevices(const std::vector<PlacedDevice> &current,
                                    const std::vector<DeviceSpec> &wanted);

// "usb-0000:00:14.0-<port>": unique per port, like a USB topology path.
std::string busPath(int port);
// "/dev/v4l/by-id/usb-<pathName>_<serial>-video-index0": stable for a camera wherever it sits.
std::string devicePath(const DeviceSpec &spec);

} // namespace vcam
