#include "vcamprovider.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "vcamscene.h"
#include "vcamsrc.h"

GST_DEBUG_CATEGORY_STATIC(vcam_provider_debug);
#define GST_CAT_DEFAULT vcam_provider_debug

namespace {

// Cameras unplugged by a scene, as "kind:serial", and the device nodes plugged in now. Like
// /dev/videoN, every camera plugged in gets a new node number.
std::mutex g_unpluggedLock;
std::set<std::string> g_unplugged;
std::set<int> g_pluggedNodes;
int g_nextNode = 0;

std::string plugKey(const char *kindWord, const char *serial)
{
    return std::string(kindWord ? kindWord : "") + ':' + (serial ? serial : "");
}

// Streams per camera (under g_unpluggedLock): by the camera's name in the holders file, and by
// the provider's node that each stream was made from.
struct Holders
{
    int streaming = 0;
    int peak = 0;
};
std::map<std::string, Holders> g_holders;
std::map<int, std::string> g_nodeNames; // plugged nodes: "kind:serial@port"
std::map<int, int> g_nodeStreams;       // streams of a node still plugged

void writeHolders()
{
    static const std::string path = [] {
        const char *value = std::getenv("TAVROKVM_VCAM_HOLDERS");
        return std::string(value ? value : "");
    }();
    if (path.empty())
        return;
    std::string text;
    for (const auto &[name, holders] : g_holders)
        text += name + ' ' + std::to_string(holders.streaming) + ' ' +
                std::to_string(holders.peak) + '\n';
    // Written aside and renamed, so that a reader never sees half a file.
    const std::string partial = path + ".partial";
    {
        std::ofstream out(partial, std::ios::binary | std::ios::trunc);
        out << text;
    }
    std::rename(partial.c_str(), path.c_str());
}

// Records the camera's (un)plugging; a newly plugged camera gets its node number.
int markPlugged(const vcam::PlacedDevice &placed, bool plugged, int node = -1)
{
    const vcam::DeviceSpec &spec = placed.spec;
    const std::string key = plugKey(vcam::kindInfo(spec.kind).word, spec.serial.c_str());
    std::lock_guard<std::mutex> guard(g_unpluggedLock);
    if (plugged) {
        g_unplugged.erase(key);
        node = g_nextNode++;
        g_pluggedNodes.insert(node);
        g_nodeNames[node] = key + '@' + std::to_string(placed.port);
    } else {
        g_unplugged.insert(key);
        g_pluggedNodes.erase(node);
        // Like a device node that is gone, an unplugged camera holds no stream any more.
        const auto streams = g_nodeStreams.find(node);
        if (streams != g_nodeStreams.end()) {
            g_holders[g_nodeNames[node]].streaming -= streams->second;
            g_nodeStreams.erase(streams);
            writeHolders();
        }
        g_nodeNames.erase(node);
    }
    return node;
}

void forgetNode(int node)
{
    std::lock_guard<std::mutex> guard(g_unpluggedLock);
    g_pluggedNodes.erase(node);
    g_nodeNames.erase(node);
    g_nodeStreams.erase(node);
}

constexpr const char *kSceneVariable = "TAVROKVM_VCAM_SCENE";
constexpr const char *kDevicesVariable = "TAVROKVM_VCAM_DEVICES";
constexpr const char *kQuietStartVariable = "TAVROKVM_VCAM_QUIET_START";
constexpr auto kPollInterval = std::chrono::milliseconds(200);
constexpr std::streamsize kMaxSceneBytes = 64 * 1024;

struct LiveDevice
{
    vcam::PlacedDevice placed;
    GstDevice *device; // our own reference
    int node;
};

struct ProviderState
{
    std::mutex lock; // guards everything below
    std::condition_variable wake;
    std::thread poller;
    bool stopping = false;
    std::vector<LiveDevice> live; // in the order they were listed
    std::string scenePath;
    std::optional<std::string> lastText; // scene file content last seen; nullopt: no file
};

std::string environment(const char *name)
{
    const char *value = std::getenv(name);
    return value ? value : "";
}

bool blank(const std::string &text)
{
    return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

// The file's content, or nullopt when it cannot be read. Only the first 64 KiB count.
std::optional<std::string> readFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return std::nullopt;
    std::string text(static_cast<std::size_t>(kMaxSceneBytes), '\0');
    in.read(&text[0], kMaxSceneBytes);
    text.resize(static_cast<std::size_t>(in.gcount()));
    return text;
}

// The scene in force when the provider starts, plus the scene file's content when there is one.
std::vector<vcam::DeviceSpec> startingScene(std::string *scenePath,
                                            std::optional<std::string> *fileText)
{
    *scenePath = environment(kSceneVariable);
    if (!scenePath->empty()) {
        *fileText = readFile(*scenePath);
        if (!*fileText) {
            g_message("[vcam] scene file %s does not exist yet: no cameras until it does",
                      scenePath->c_str());
            return {};
        }
        const vcam::SceneParse parse = vcam::parseScene(**fileText);
        if (parse.ok)
            return parse.devices;
        g_warning("[vcam] scene file %s: %s; using one box", scenePath->c_str(),
                  parse.error.c_str());
        return vcam::defaultScene();
    }

    const std::string devices = environment(kDevicesVariable);
    if (blank(devices))
        return vcam::defaultScene();
    const vcam::SceneParse parse = vcam::parseScene(devices);
    if (parse.ok)
        return parse.devices;
    g_warning("[vcam] %s='%s': %s; using one box", kDevicesVariable, devices.c_str(),
              parse.error.c_str());
    return vcam::defaultScene();
}

GstDevice *makeDevice(const vcam::PlacedDevice &placed, int node)
{
    const vcam::KindInfo &info = vcam::kindInfo(placed.spec.kind);
    GstCaps *caps = tavrokvm_vcam_caps_for_kind(placed.spec.kind);
    const std::string busPath = vcam::busPath(placed.port);
    const std::string path = vcam::devicePath(placed.spec);
    const std::string serial = placed.spec.serial == vcam::kNoSerial ? "" : placed.spec.serial;
    GstStructure *properties = gst_structure_new(
        "tavrokvm-vcam", "device.api", G_TYPE_STRING, "tavrokvm-vcam", "device.bus", G_TYPE_STRING,
        "usb", "device.kind", G_TYPE_STRING, info.word, "device.vendor.id", G_TYPE_STRING,
        info.vendorId, "device.product.id", G_TYPE_STRING, info.productId, "device.product.name",
        G_TYPE_STRING, info.displayName, "device.serial", G_TYPE_STRING, serial.c_str(),
        "device.bus_path", G_TYPE_STRING, busPath.c_str(), "device.path", G_TYPE_STRING,
        path.c_str(), "device.node", G_TYPE_INT, node, nullptr);

    auto *device = static_cast<TavroKvmVcamDevice *>(
        g_object_new(TAVROKVM_TYPE_VCAM_DEVICE, "display-name", info.displayName, "device-class",
                     "Video/Source", "caps", caps, "properties", properties, nullptr));
    gst_caps_unref(caps);
    gst_structure_free(properties);
    return GST_DEVICE(gst_object_ref_sink(device));
}

} // namespace

// ---------------------------------------------------------------------------------------------
// The device: knows its kind and serial, opens as a tavrokvmvcamsrc.

struct _TavroKvmVcamDevice
{
    GstDevice parent;
};

G_DEFINE_TYPE(TavroKvmVcamDevice, tavrokvm_vcam_device, GST_TYPE_DEVICE)

namespace {

GstElement *createElement(GstDevice *device, const gchar *name)
{
    GstStructure *properties = gst_device_get_properties(device);
    const gchar *kind = properties ? gst_structure_get_string(properties, "device.kind") : nullptr;
    const gchar *serial =
        properties ? gst_structure_get_string(properties, "device.serial") : nullptr;
    gint node = -1;
    if (properties)
        gst_structure_get_int(properties, "device.node", &node);
    GstElement *element = gst_element_factory_make("tavrokvmvcamsrc", name);
    if (element)
        g_object_set(element, "kind", kind ? kind : "box", "serial", serial, "node", node, nullptr);
    else
        g_warning("[vcam] element tavrokvmvcamsrc is not registered");
    if (properties)
        gst_structure_free(properties);
    return element;
}

} // namespace

static void tavrokvm_vcam_device_class_init(TavroKvmVcamDeviceClass *klass)
{
    GST_DEVICE_CLASS(klass)->create_element = createElement;
}

static void tavrokvm_vcam_device_init(TavroKvmVcamDevice *) {}

// ---------------------------------------------------------------------------------------------
// The provider.

struct _TavroKvmVcamProvider
{
    GstDeviceProvider parent;
    ProviderState *state;
};

G_DEFINE_TYPE(TavroKvmVcamProvider, tavrokvm_vcam_provider, GST_TYPE_DEVICE_PROVIDER)

namespace {

std::vector<vcam::PlacedDevice> placedDevices(const std::vector<LiveDevice> &live)
{
    std::vector<vcam::PlacedDevice> placed;
    for (const LiveDevice &d : live)
        placed.push_back(d.placed);
    return placed;
}

// Unplugs what the new scene lacks and plugs what it adds; cameras present in both stay as they
// are. Called with the state locked.
void applyScene(GstDeviceProvider *provider, ProviderState &state,
                const std::vector<vcam::DeviceSpec> &wanted)
{
    const std::vector<vcam::Placement> placements =
        vcam::placeDevices(placedDevices(state.live), wanted);
    std::vector<bool> kept(state.live.size(), false);
    for (const vcam::Placement &p : placements) {
        if (p.previous >= 0)
            kept[std::size_t(p.previous)] = true;
    }
    for (std::size_t i = 0; i < state.live.size(); ++i) {
        if (kept[i])
            continue;
        GST_INFO_OBJECT(provider, "unplugging %s on port %d",
                        state.live[i].placed.spec.serial.c_str(), state.live[i].placed.port);
        markPlugged(state.live[i].placed, false, state.live[i].node);
        gst_device_provider_device_remove(provider, state.live[i].device);
        gst_object_unref(state.live[i].device);
    }

    std::vector<LiveDevice> next;
    for (const vcam::Placement &p : placements) {
        if (p.previous >= 0) {
            next.push_back(state.live[std::size_t(p.previous)]);
            continue;
        }
        GST_INFO_OBJECT(provider, "plugging %s on port %d", p.device.spec.serial.c_str(),
                        p.device.port);
        const int node = markPlugged(p.device, true);
        GstDevice *device = makeDevice(p.device, node);
        gst_device_provider_device_add(provider, device);
        next.push_back({p.device, device, node});
    }
    state.live = std::move(next);
}

void pollScene(GstDeviceProvider *provider, ProviderState &state)
{
    std::unique_lock<std::mutex> guard(state.lock);
    while (!state.wake.wait_for(guard, kPollInterval, [&] { return state.stopping; })) {
        std::optional<std::string> text = readFile(state.scenePath);
        if (text == state.lastText)
            continue;
        state.lastText = text;
        if (!text) {
            g_message("[vcam] scene file %s is gone: unplugging every camera",
                      state.scenePath.c_str());
            applyScene(provider, state, {});
            continue;
        }
        const vcam::SceneParse parse = vcam::parseScene(*text);
        if (!parse.ok) {
            g_warning("[vcam] scene file %s: %s; the cameras stay as they are",
                      state.scenePath.c_str(), parse.error.c_str());
            continue;
        }
        applyScene(provider, state, parse.devices);
    }
}

GList *probe(GstDeviceProvider *)
{
    std::string scenePath;
    std::optional<std::string> fileText;
    const std::vector<vcam::Placement> placements =
        vcam::placeDevices({}, startingScene(&scenePath, &fileText));
    GList *devices = nullptr;
    for (const vcam::Placement &p : placements)
        devices = g_list_append(devices, makeDevice(p.device, -1));
    return devices;
}

gboolean start(GstDeviceProvider *provider)
{
    ProviderState &state = *TAVROKVM_VCAM_PROVIDER(provider)->state;
    std::lock_guard<std::mutex> guard(state.lock);
    std::optional<std::string> fileText;
    const std::vector<vcam::DeviceSpec> scene = startingScene(&state.scenePath, &fileText);
    state.lastText = fileText;
    // Like the system's V4L2 provider, the cameras present at start are announced as well as
    // listed, so a monitor that asks for the list right after starting hears of them twice (Qt
    // 6.4 then lists them twice). TAVROKVM_VCAM_QUIET_START=1 drops the announcements.
    const bool quiet = environment(kQuietStartVariable) == "1";
    GstBus *bus = gst_device_provider_get_bus(provider);
    if (quiet)
        gst_bus_set_flushing(bus, TRUE);
    for (const vcam::Placement &p : vcam::placeDevices({}, scene)) {
        const int node = markPlugged(p.device, true);
        GstDevice *device = makeDevice(p.device, node);
        gst_device_provider_device_add(provider, device);
        state.live.push_back({p.device, device, node});
    }
    if (quiet)
        gst_bus_set_flushing(bus, FALSE);
    gst_object_unref(bus);
    if (!state.scenePath.empty()) {
        state.stopping = false;
        state.poller = std::thread(pollScene, provider, std::ref(state));
    }
    return TRUE;
}

void stop(GstDeviceProvider *provider)
{
    ProviderState &state = *TAVROKVM_VCAM_PROVIDER(provider)->state;
    {
        std::lock_guard<std::mutex> guard(state.lock);
        state.stopping = true;
    }
    state.wake.notify_all();
    if (state.poller.joinable())
        state.poller.join();
    // The base class drops its own list of devices; these are our references to them.
    std::lock_guard<std::mutex> guard(state.lock);
    for (LiveDevice &d : state.live) {
        forgetNode(d.node);
        gst_object_unref(d.device);
    }
    state.live.clear();
}

void finalize(GObject *object)
{
    delete TAVROKVM_VCAM_PROVIDER(object)->state;
    G_OBJECT_CLASS(tavrokvm_vcam_provider_parent_class)->finalize(object);
}

} // namespace

static void tavrokvm_vcam_provider_class_init(TavroKvmVcamProviderClass *klass)
{
    GST_DEBUG_CATEGORY_INIT(vcam_provider_debug, "tavrokvmvcamprovider", 0,
                            "TavroKVM virtual camera provider");
    G_OBJECT_CLASS(klass)->finalize = finalize;
    GstDeviceProviderClass *providerClass = GST_DEVICE_PROVIDER_CLASS(klass);
    providerClass->probe = probe;
    providerClass->start = start;
    providerClass->stop = stop;
    gst_device_provider_class_set_static_metadata(
        providerClass, "TavroKVM virtual cameras", "Video/Source",
        "Lists the virtual capture cameras of the TavroKVM test scene", "TavroKVM");
}

static void tavrokvm_vcam_provider_init(TavroKvmVcamProvider *self)
{
    self->state = new ProviderState;
}

bool tavrokvm_vcam_node_is_plugged(int node)
{
    std::lock_guard<std::mutex> guard(g_unpluggedLock);
    return g_pluggedNodes.count(node) > 0;
}

bool tavrokvm_vcam_is_unplugged(const char *kindWord, const char *serial)
{
    std::lock_guard<std::mutex> guard(g_unpluggedLock);
    return g_unplugged.count(plugKey(kindWord, serial)) > 0;
}

void tavrokvm_vcam_stream_started(int node, const char *kindWord, const char *serial)
{
    std::lock_guard<std::mutex> guard(g_unpluggedLock);
    std::string name = plugKey(kindWord, serial);
    if (node >= 0) {
        // A stream of a node that is gone never runs: it holds nothing.
        if (!g_pluggedNodes.count(node))
            return;
        name = g_nodeNames[node];
        ++g_nodeStreams[node];
    }
    Holders &holders = g_holders[name];
    ++holders.streaming;
    holders.peak = std::max(holders.peak, holders.streaming);
    writeHolders();
}

void tavrokvm_vcam_stream_stopped(int node, const char *kindWord, const char *serial)
{
    std::lock_guard<std::mutex> guard(g_unpluggedLock);
    std::string name = plugKey(kindWord, serial);
    if (node >= 0) {
        const auto streams = g_nodeStreams.find(node);
        if (streams == g_nodeStreams.end())
            return; // never counted, or let go when the camera was unplugged
        name = g_nodeNames[node];
        if (--streams->second == 0)
            g_nodeStreams.erase(streams);
    }
    Holders &holders = g_holders[name];
    holders.streaming = std::max(0, holders.streaming - 1);
    writeHolders();
}
