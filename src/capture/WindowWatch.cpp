#include "capture/WindowWatch.h"

#include <QSocketNotifier>

#include <xcb/xcb.h>

#include <cstdlib>

namespace varnel {

WindowWatch::WindowWatch(std::uint32_t window, QObject* parent)
    : QObject(parent), window_(window), connection_(xcb_connect(nullptr, nullptr)) {
    if (xcb_connection_has_error(connection_))
        return;
    const std::uint32_t mask[] = {XCB_EVENT_MASK_STRUCTURE_NOTIFY};
    xcb_generic_error_t* error = xcb_request_check(
        connection_,
        xcb_change_window_attributes_checked(connection_, window_, XCB_CW_EVENT_MASK, mask));
    if (error) {
        std::free(error);
        return;
    }
    valid_ = true;
    if (auto* attributes = xcb_get_window_attributes_reply(
            connection_, xcb_get_window_attributes(connection_, window_), nullptr)) {
        viewable_ = attributes->map_state == XCB_MAP_STATE_VIEWABLE;
        std::free(attributes);
    }
    notifier_ = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection_),
                                                  QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &WindowWatch::readEvents);
}

WindowWatch::~WindowWatch() {
    notifier_.reset();
    xcb_disconnect(connection_);
}

void WindowWatch::readEvents() {
    bool gone = false;
    const bool wasViewable = viewable_;
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) {
        const auto type = event->response_type & 0x7f;
        if (type == XCB_DESTROY_NOTIFY &&
            reinterpret_cast<xcb_destroy_notify_event_t*>(event)->window == window_)
            gone = true;
        if (type == XCB_MAP_NOTIFY &&
            reinterpret_cast<xcb_map_notify_event_t*>(event)->window == window_)
            viewable_ = true;
        if (type == XCB_UNMAP_NOTIFY &&
            reinterpret_cast<xcb_unmap_notify_event_t*>(event)->window == window_)
            viewable_ = false;
        std::free(event);
    }
    if (xcb_connection_has_error(connection_)) {
        notifier_->setEnabled(false);
        gone = true;
    }
    if (gone) {
        emit closed();
        return;
    }
    if (viewable_ != wasViewable)
        emit viewableChanged(viewable_);
}

} // namespace varnel
