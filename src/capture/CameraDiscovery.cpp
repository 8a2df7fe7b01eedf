#include "capture/CameraDiscovery.h"

#include "media/GstSupport.h"

#include <filesystem>
#include <set>
#include <system_error>

namespace varnel {

namespace {

std::string property(const GstStructure* properties, const char* key) {
    if (!properties)
        return {};
    const gchar* value = gst_structure_get_string(properties, key);
    return value ? value : "";
}

// /dev/videoN moves between plug-ins; the by-id link of the same node does not.
std::string stablePath(const std::string& node) {
    namespace fs = std::filesystem;
    std::error_code ec;
    const fs::path canonical = fs::canonical(node, ec);
    if (ec)
        return node;
    for (const auto& entry : fs::directory_iterator("/dev/v4l/by-id", ec)) {
        std::error_code inner;
        if (fs::canonical(entry.path(), inner) == canonical && !inner)
            return entry.path().string();
    }
    return node;
}

// A V4L2 node that GStreamer's provider skipped, as a device like the others: its element
// reads the node.
struct NodeDevice {
    GstDevice parent;
    char* node;
};
struct NodeDeviceClass {
    GstDeviceClass parent;
};

GstElement* createNodeElement(GstDevice* device, const gchar* name) {
    GstElement* source = gst_element_factory_make("v4l2src", name);
    if (source)
        g_object_set(source, "device", reinterpret_cast<NodeDevice*>(device)->node, nullptr);
    return source;
}

void finalizeNodeDevice(GObject* object) {
    g_free(reinterpret_cast<NodeDevice*>(object)->node);
    G_OBJECT_CLASS(g_type_class_peek_parent(G_OBJECT_GET_CLASS(object)))->finalize(object);
}

GType nodeDeviceType() {
    static const GType type = g_type_register_static_simple(
        GST_TYPE_DEVICE, "VarnelV4l2NodeDevice", sizeof(NodeDeviceClass),
        [](gpointer klass, gpointer) {
            GST_DEVICE_CLASS(klass)->create_element = createNodeElement;
            G_OBJECT_CLASS(klass)->finalize = finalizeNodeDevice;
        },
        sizeof(NodeDevice), nullptr, GTypeFlags(0));
    return type;
}

GstDevice* makeNodeDevice(const VideoNodes::CaptureNode& found) {
    GstStructure* properties = gst_structure_new("properties", "api.v4l2.path", G_TYPE_STRING,
                                                 found.node.c_str(), nullptr);
    auto* device = static_cast<GstDevice*>(
        g_object_new(nodeDeviceType(), "display-name", found.card.c_str(), "device-class",
                     "Video/Source", "properties", properties, nullptr));
    gst_structure_free(properties);
    reinterpret_cast<NodeDevice*>(device)->node = g_strdup(found.node.c_str());
    return GST_DEVICE(gst_object_ref_sink(device));
}

// The monitor's devices, then the nodes it left out; a repeated id is visited once.
void forEachDevice(GstDeviceMonitor* monitor, const CameraDiscovery::NodeScan& scan,
                   const std::function<void(GstDevice*, const std::string&)>& visit) {
    std::set<std::string> seen;
    GList* devices = gst_device_monitor_get_devices(monitor);
    for (GList* item = devices; item; item = item->next) {
        GstDevice* device = GST_DEVICE(item->data);
        std::string id = CameraDiscovery::deviceID(device);
        if (seen.insert(id).second)
            visit(device, id);
    }
    g_list_free_full(devices, gst_object_unref);
    if (!scan)
        return;
    for (const auto& node : scan()) {
        std::string id = stablePath(node.node.string());
        if (!seen.insert(id).second)
            continue;
        GstDevice* device = makeNodeDevice(node);
        visit(device, id);
        gst_object_unref(device);
    }
}

} // namespace

CameraDiscovery::CameraDiscovery(NodeScan scan) : scan_(std::move(scan)) {
    if (!gst::initialize())
        return;
    monitor_ = gst_device_monitor_new();
    gst_device_monitor_add_filter(monitor_, "Video/Source", nullptr);
}

CameraDiscovery::~CameraDiscovery() {
    if (!monitor_)
        return;
    if (watching_) {
        gst_device_monitor_stop(monitor_);
        GstBus* bus = gst_device_monitor_get_bus(monitor_);
        gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
        gst_object_unref(bus);
    }
    gst_object_unref(monitor_);
}

std::string CameraDiscovery::deviceID(GstDevice* device) {
    GstStructure* properties = gst_device_get_properties(device);
    std::string id;
    for (const char* key : {"api.v4l2.path", "device.path"}) {
        if (id.empty() && !property(properties, key).empty())
            id = stablePath(property(properties, key));
    }
    for (const char* key : {"node.name", "device.serial", "object.path"}) {
        if (id.empty())
            id = property(properties, key);
    }
    if (properties)
        gst_structure_free(properties);
    if (id.empty()) {
        gchar* name = gst_device_get_display_name(device);
        id = std::string("camera:") + (name ? name : "");
        g_free(name);
    }
    return id;
}

std::vector<DeviceInfo> CameraDiscovery::devices() const {
    std::vector<DeviceInfo> out;
    if (!monitor_)
        return out;
    forEachDevice(monitor_, scan_, [&](GstDevice* device, const std::string& id) {
        gchar* name = gst_device_get_display_name(device);
        out.push_back(DeviceInfo{id, name ? name : "", false});
        g_free(name);
    });
    return out;
}

GstDevice* CameraDiscovery::find(const std::string& id) const {
    GstDevice* found = nullptr;
    if (!monitor_)
        return found;
    forEachDevice(monitor_, scan_, [&](GstDevice* device, const std::string& listed) {
        if (!found && listed == id)
            found = GST_DEVICE(gst_object_ref(device));
    });
    return found;
}

void CameraDiscovery::watch(std::function<void()> changed) {
    if (!monitor_ || watching_)
        return;
    changed_ = std::make_shared<std::function<void()>>(std::move(changed));
    GstBus* bus = gst_device_monitor_get_bus(monitor_);
    // A sync handler needs no GLib main loop: the message is seen on the thread that posts it.
    gst_bus_set_sync_handler(
        bus,
        [](GstBus*, GstMessage* message, gpointer data) -> GstBusSyncReply {
            const auto type = GST_MESSAGE_TYPE(message);
            if (type == GST_MESSAGE_DEVICE_ADDED || type == GST_MESSAGE_DEVICE_REMOVED)
                (*static_cast<std::function<void()>*>(data))();
            return GST_BUS_DROP;
        },
        changed_.get(), nullptr);
    gst_object_unref(bus);
    watching_ = gst_device_monitor_start(monitor_);
}

} // namespace varnel
