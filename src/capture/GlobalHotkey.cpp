#include "capture/GlobalHotkey.h"

#include <QKeySequence>
#include <QSocketNotifier>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include <cstdlib>
#include <optional>

namespace varnel {

namespace {

// The X keysym of a Qt key: Latin-1 keys are their own (lower-case) keysyms.
std::optional<std::uint32_t> keysym(int key) {
    if (key >= Qt::Key_A && key <= Qt::Key_Z)
        return static_cast<std::uint32_t>(key - Qt::Key_A + 'a');
    if (key >= Qt::Key_Space && key <= Qt::Key_AsciiTilde)
        return static_cast<std::uint32_t>(key);
    if (key >= Qt::Key_F1 && key <= Qt::Key_F24)
        return static_cast<std::uint32_t>(0xffbe + (key - Qt::Key_F1));
    switch (key) {
    case Qt::Key_Print:
        return 0xff61;
    case Qt::Key_Pause:
        return 0xff13;
    case Qt::Key_Insert:
        return 0xff63;
    case Qt::Key_Home:
        return 0xff50;
    case Qt::Key_End:
        return 0xff57;
    default:
        return std::nullopt;
    }
}

std::uint16_t xModifiers(Qt::KeyboardModifiers modifiers) {
    std::uint16_t mask = 0;
    if (modifiers & Qt::ShiftModifier)
        mask |= XCB_MOD_MASK_SHIFT;
    if (modifiers & Qt::ControlModifier)
        mask |= XCB_MOD_MASK_CONTROL;
    if (modifiers & Qt::AltModifier)
        mask |= XCB_MOD_MASK_1;
    if (modifiers & Qt::MetaModifier)
        mask |= XCB_MOD_MASK_4;
    return mask;
}

} // namespace

GlobalHotkey::GlobalHotkey(QObject* parent) : QObject(parent) {}

GlobalHotkey::~GlobalHotkey() {
    release();
    if (connection_)
        xcb_disconnect(connection_);
}

void GlobalHotkey::release() {
    for (const auto& grab : grabs_)
        xcb_ungrab_key(connection_, grab.keycode, root_, grab.modifiers);
    if (!grabs_.empty())
        xcb_flush(connection_);
    grabs_.clear();
    shortcut_.clear();
}

bool GlobalHotkey::setShortcut(const QString& shortcut) {
    release();
    error_.clear();
    if (shortcut.isEmpty())
        return true;
    const QKeySequence sequence = QKeySequence::fromString(shortcut, QKeySequence::PortableText);
    if (sequence.count() != 1) {
        error_ = tr("“%1” is not one key with its modifiers.").arg(shortcut);
        return false;
    }
    const QKeyCombination combination = sequence[0];
    const auto sym = keysym(combination.key());
    if (!sym) {
        error_ = tr("The key of “%1” can't be used system-wide.").arg(shortcut);
        return false;
    }
    if (!connection_) {
        connection_ = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(connection_)) {
            xcb_disconnect(connection_);
            connection_ = nullptr;
            error_ = tr("System-wide shortcuts need an X display.");
            return false;
        }
        root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
        notifier_ = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection_),
                                                      QSocketNotifier::Read);
        connect(notifier_.get(), &QSocketNotifier::activated, this, &GlobalHotkey::readEvents);
    }

    xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(connection_);
    xcb_keycode_t* codes = xcb_key_symbols_get_keycode(symbols, *sym);
    xcb_key_symbols_free(symbols);
    if (!codes || codes[0] == XCB_NO_SYMBOL) {
        std::free(codes);
        error_ = tr("The keyboard has no key for “%1”.").arg(shortcut);
        return false;
    }
    const std::uint8_t keycode = codes[0];
    std::free(codes);

    // Caps Lock and Num Lock must not stop the shortcut: grab it with each of them too.
    const std::uint16_t base = xModifiers(combination.keyboardModifiers());
    constexpr std::uint16_t kLock = XCB_MOD_MASK_LOCK, kNumLock = XCB_MOD_MASK_2;
    for (const std::uint16_t locks :
         {std::uint16_t{0}, kLock, kNumLock, static_cast<std::uint16_t>(kLock | kNumLock)}) {
        const std::uint16_t modifiers = base | locks;
        xcb_generic_error_t* failure = xcb_request_check(
            connection_, xcb_grab_key_checked(connection_, 1, root_, modifiers, keycode,
                                              XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        if (failure) {
            std::free(failure);
            release();
            error_ = tr("“%1” is already taken by another application.").arg(shortcut);
            return false;
        }
        grabs_.push_back({keycode, modifiers});
    }
    shortcut_ = shortcut;
    return true;
}

void GlobalHotkey::readEvents() {
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) {
        const bool pressed = (event->response_type & 0x7f) == XCB_KEY_PRESS;
        std::free(event);
        if (pressed && !grabs_.empty())
            emit activated();
    }
}

} // namespace varnel
