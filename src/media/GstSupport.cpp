#include "media/GstSupport.h"

#include <mutex>

namespace varnel::gst {

bool initialize() {
    static std::once_flag once;
    static bool ready = false;
    std::call_once(once, [] { ready = gst_init_check(nullptr, nullptr, nullptr); });
    return ready;
}

std::unique_ptr<GstElement, ObjectUnref> child(GstElement* bin, const char* name) {
    return std::unique_ptr<GstElement, ObjectUnref>(gst_bin_get_by_name(GST_BIN(bin), name));
}

ElementPtr parse(const char* description, std::string* error) {
    if (!initialize()) {
        if (error)
            *error = "GStreamer could not be started.";
        return nullptr;
    }
    GError* failure = nullptr;
    ElementPtr pipeline(gst_parse_launch(description, &failure));
    if (failure) {
        if (error)
            *error = failure->message;
        g_error_free(failure);
        return nullptr;
    }
    return pipeline;
}

void rewriteCaps(GstPad* pad, std::function<void(GstStructure*)> edit) {
    using Edit = std::function<void(GstStructure*)>;
    gst_pad_add_probe(
        pad, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM,
        [](GstPad*, GstPadProbeInfo* info, gpointer data) {
            GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
            if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS)
                return GST_PAD_PROBE_OK;
            GstCaps* caps = nullptr;
            gst_event_parse_caps(event, &caps);
            GstCaps* edited = gst_caps_copy(caps);
            if (!gst_caps_is_empty(edited))
                (*static_cast<Edit*>(data))(gst_caps_get_structure(edited, 0));
            GST_PAD_PROBE_INFO_DATA(info) = gst_event_new_caps(edited);
            gst_caps_unref(edited);
            gst_event_unref(event);
            return GST_PAD_PROBE_OK;
        },
        new Edit(std::move(edit)), [](gpointer data) { delete static_cast<Edit*>(data); });
}

} // namespace varnel::gst
