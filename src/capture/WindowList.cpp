#include "capture/WindowList.h"

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace varnel::WindowList {

namespace {

struct Free {
    void operator()(void* p) const { std::free(p); }
};
template <typename T> using Reply = std::unique_ptr<T, Free>;

struct Disconnect {
    void operator()(xcb_connection_t* c) const { xcb_disconnect(c); }
};

xcb_atom_t atom(xcb_connection_t* c, const char* name) {
    Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        c, xcb_intern_atom(c, 1, static_cast<std::uint16_t>(std::strlen(name)), name), nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

std::string stringProperty(xcb_connection_t* c, xcb_window_t window, xcb_atom_t property,
                           xcb_atom_t type) {
    if (property == XCB_ATOM_NONE)
        return {};
    Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        c, xcb_get_property(c, 0, window, property, type, 0, 4096), nullptr));
    if (!reply || reply->type == XCB_ATOM_NONE)
        return {};
    const auto* data = static_cast<const char*>(xcb_get_property_value(reply.get()));
    return std::string(data, static_cast<std::size_t>(xcb_get_property_value_length(reply.get())));
}

std::vector<xcb_window_t> clientList(xcb_connection_t* c, xcb_window_t root) {
    std::vector<xcb_window_t> out;
    const xcb_atom_t property = atom(c, "_NET_CLIENT_LIST");
    if (property != XCB_ATOM_NONE) {
        Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            c, xcb_get_property(c, 0, root, property, XCB_ATOM_WINDOW, 0, 1u << 16), nullptr));
        if (reply && reply->type == XCB_ATOM_WINDOW && reply->format == 32) {
            const auto* ids = static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get()));
            out.assign(ids, ids + xcb_get_property_value_length(reply.get()) / 4);
            return out;
        }
    }
    Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, xcb_query_tree(c, root), nullptr));
    if (!tree)
        return out;
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    out.assign(children, children + xcb_query_tree_children_length(tree.get()));
    return out;
}

} // namespace

std::optional<std::vector<X11Window>> list(const std::string& display) {
    std::unique_ptr<xcb_connection_t, Disconnect> connection(
        xcb_connect(display.empty() ? nullptr : display.c_str(), nullptr));
    xcb_connection_t* c = connection.get();
    if (!c || xcb_connection_has_error(c))
        return std::nullopt;
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    if (!screen)
        return std::nullopt;

    const xcb_atom_t netWmName = atom(c, "_NET_WM_NAME");
    const xcb_atom_t utf8 = atom(c, "UTF8_STRING");
    std::vector<X11Window> out;
    for (const xcb_window_t id : clientList(c, screen->root)) {
        Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, id), nullptr));
        if (!attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE ||
            attributes->override_redirect)
            continue;
        Reply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(c, xcb_get_geometry(c, id), nullptr));
        if (!geometry)
            continue;
        X11Window window;
        window.id = id;
        window.width = geometry->width;
        window.height = geometry->height;
        const std::string wmClass = stringProperty(c, id, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
        const auto split = wmClass.find('\0');
        window.wmInstance = wmClass.substr(0, split);
        if (split != std::string::npos) {
            window.wmClass = wmClass.substr(split + 1);
            if (const auto end = window.wmClass.find('\0'); end != std::string::npos)
                window.wmClass.resize(end);
        }
        window.title = stringProperty(c, id, netWmName, utf8);
        if (window.title.empty())
            window.title = stringProperty(c, id, XCB_ATOM_WM_NAME, XCB_ATOM_ANY);
        out.push_back(std::move(window));
    }
    return out;
}

} // namespace varnel::WindowList
