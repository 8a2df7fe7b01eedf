#pragma once

#include <gst/gst.h>

#include <functional>
#include <memory>
#include <string>

namespace varnel::gst {

// gst_init once per process; false when GStreamer cannot start (no plugins, say).
bool initialize();

struct ElementUnref {
    void operator()(GstElement* element) const {
        gst_element_set_state(element, GST_STATE_NULL);
        gst_object_unref(element);
    }
};
using ElementPtr = std::unique_ptr<GstElement, ElementUnref>;

struct ObjectUnref {
    void operator()(gpointer object) const { gst_object_unref(object); }
};

// The element named `name` inside `bin`, with its own reference.
std::unique_ptr<GstElement, ObjectUnref> child(GstElement* bin, const char* name);

// Builds a pipeline from a launch description; the error text goes to `error` on failure.
ElementPtr parse(const char* description, std::string* error = nullptr);

// Every caps event that passes `pad` downstream is replaced by one whose first structure
// `edit` has changed (fields set or removed).
void rewriteCaps(GstPad* pad, std::function<void(GstStructure*)> edit);

} // namespace varnel::gst
