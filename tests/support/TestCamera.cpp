#include "support/TestCamera.h"

#include "media/GstSupport.h"

#include <gst/gst.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <vector>

namespace varnel::test::TestCameras {

namespace {

std::mutex mutex;
std::map<std::string, Spec> connected;
std::vector<GstDeviceProvider*> startedProviders;

// ---- the device ----

struct TestCameraDevice {
    GstDevice parent;
    Spec* spec;
};
struct TestCameraDeviceClass {
    GstDeviceClass parent;
};

GType testCameraDeviceType();

GstElement* createElement(GstDevice* device, const gchar* name) {
    const Spec& spec = *reinterpret_cast<TestCameraDevice*>(device)->spec;
    const std::string size = "width=" + std::to_string(spec.width) +
                             ",height=" + std::to_string(spec.height) +
                             ",framerate=" + std::to_string(spec.fps) + "/1";
    const std::string description =
        "videotestsrc is-live=true pattern=" + spec.pattern +
        (spec.mjpeg ? " ! capsfilter caps=video/x-raw,format=I420," + size +
                          " ! jpegenc ! capsfilter caps=image/jpeg," + size
                    : " ! capsfilter caps=video/x-raw,format=BGRA," + size);
    GstElement* bin = gst_parse_bin_from_description(description.c_str(), TRUE, nullptr);
    if (bin && name)
        gst_object_set_name(GST_OBJECT(bin), name);
    return bin;
}

void deviceFinalize(GObject* object) {
    delete reinterpret_cast<TestCameraDevice*>(object)->spec;
    G_OBJECT_CLASS(g_type_class_peek_parent(G_OBJECT_GET_CLASS(object)))->finalize(object);
}

void deviceClassInit(gpointer klass, gpointer) {
    GST_DEVICE_CLASS(klass)->create_element = createElement;
    G_OBJECT_CLASS(klass)->finalize = deviceFinalize;
}

GType testCameraDeviceType() {
    static GType type = g_type_register_static_simple(
        GST_TYPE_DEVICE, "VarnelTestCameraDevice", sizeof(TestCameraDeviceClass), deviceClassInit,
        sizeof(TestCameraDevice), nullptr, GTypeFlags(0));
    return type;
}

std::string keyOf(const Spec& spec) {
    return spec.key.empty() ? spec.serial : spec.key;
}

GstDevice* makeDevice(const Spec& spec) {
    GstCaps* caps = spec.mjpeg ? gst_caps_new_simple("image/jpeg", "width", G_TYPE_INT, spec.width,
                                                     "height", G_TYPE_INT, spec.height, nullptr)
                               : gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "BGRA",
                                                     "width", G_TYPE_INT, spec.width, "height",
                                                     G_TYPE_INT, spec.height, nullptr);
    GstStructure* properties = gst_structure_new("properties", "device.serial", G_TYPE_STRING,
                                                 spec.serial.c_str(), nullptr);
    if (!spec.v4l2Path.empty())
        gst_structure_set(properties, "api.v4l2.path", G_TYPE_STRING, spec.v4l2Path.c_str(),
                          nullptr);
    auto* device = static_cast<GstDevice*>(
        g_object_new(testCameraDeviceType(), "display-name", spec.name.c_str(), "device-class",
                     "Video/Source", "caps", caps, "properties", properties, nullptr));
    gst_caps_unref(caps);
    gst_structure_free(properties);
    reinterpret_cast<TestCameraDevice*>(device)->spec = new Spec(spec);
    return device;
}

// ---- the provider ----

GList* probe(GstDeviceProvider*) {
    std::lock_guard lock(mutex);
    GList* devices = nullptr;
    for (const auto& [serial, spec] : connected)
        devices = g_list_append(devices, gst_object_ref_sink(makeDevice(spec)));
    return devices;
}

gboolean startProvider(GstDeviceProvider* provider) {
    std::vector<Spec> present;
    {
        std::lock_guard lock(mutex);
        startedProviders.push_back(provider);
        for (const auto& [serial, spec] : connected)
            present.push_back(spec);
    }
    for (const auto& spec : present)
        gst_device_provider_device_add(provider, makeDevice(spec));
    return TRUE;
}

void stopProvider(GstDeviceProvider* provider) {
    std::lock_guard lock(mutex);
    std::erase(startedProviders, provider);
}

void providerClassInit(gpointer klass, gpointer) {
    auto* providerClass = GST_DEVICE_PROVIDER_CLASS(klass);
    providerClass->probe = probe;
    providerClass->start = startProvider;
    providerClass->stop = stopProvider;
    gst_device_provider_class_set_static_metadata(
        providerClass, "Varnel test cameras", "Video/Source", "Test pictures as cameras", "Varnel");
}

GType testCameraProviderType() {
    static GType type = g_type_register_static_simple(
        GST_TYPE_DEVICE_PROVIDER, "VarnelTestCameraProvider", sizeof(GstDeviceProviderClass),
        providerClassInit, sizeof(GstDeviceProvider), nullptr, GTypeFlags(0));
    return type;
}

// The devices a started provider lists, to find the one to remove.
GstDevice* findDevice(GstDeviceProvider* provider, const std::string& key) {
    GstDevice* found = nullptr;
    GList* devices = gst_device_provider_get_devices(provider);
    for (GList* item = devices; item; item = item->next) {
        GstDevice* device = GST_DEVICE(item->data);
        if (!found && g_type_is_a(G_OBJECT_TYPE(device), testCameraDeviceType()) &&
            keyOf(*reinterpret_cast<TestCameraDevice*>(device)->spec) == key)
            found = GST_DEVICE(gst_object_ref(device));
    }
    g_list_free_full(devices, gst_object_unref);
    return found;
}

} // namespace

void install() {
    static std::once_flag once;
    std::call_once(once, [] {
        gst::initialize();
        gst_device_provider_register(nullptr, "varneltestcameras", GST_RANK_PRIMARY,
                                     testCameraProviderType());
    });
}

void connect(const Spec& spec) {
    install();
    std::vector<GstDeviceProvider*> providers;
    {
        std::lock_guard lock(mutex);
        connected.insert_or_assign(keyOf(spec), spec);
        providers = startedProviders;
    }
    for (auto* provider : providers)
        gst_device_provider_device_add(provider, makeDevice(spec));
}

void disconnect(const std::string& key) {
    std::vector<GstDeviceProvider*> providers;
    {
        std::lock_guard lock(mutex);
        connected.erase(key);
        providers = startedProviders;
    }
    for (auto* provider : providers) {
        if (GstDevice* device = findDevice(provider, key)) {
            gst_device_provider_device_remove(provider, device);
            gst_object_unref(device);
        }
    }
}

void disconnectAll() {
    std::vector<std::string> serials;
    {
        std::lock_guard lock(mutex);
        for (const auto& [serial, spec] : connected)
            serials.push_back(serial);
    }
    for (const auto& serial : serials)
        disconnect(serial);
}

} // namespace varnel::test::TestCameras
