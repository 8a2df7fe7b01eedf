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

} // namespace varnel::gst
