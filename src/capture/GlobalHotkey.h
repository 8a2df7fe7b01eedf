#pragma once

#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>
#include <vector>

class QSocketNotifier;
typedef struct xcb_connection_t xcb_connection_t;

namespace varnel {

// A shortcut that works whichever application has the keyboard: grabbed on the X server's
// root window, on a connection of its own.
class GlobalHotkey : public QObject {
    Q_OBJECT

public:
    explicit GlobalHotkey(QObject* parent = nullptr);
    ~GlobalHotkey() override;

    // Registers `shortcut` (Qt's portable text, "Ctrl+Shift+S"); an empty text removes it.
    // False with `error()` telling why when it can't be registered.
    bool setShortcut(const QString& shortcut);
    const QString& shortcut() const { return shortcut_; }
    const QString& error() const { return error_; }

signals:
    void activated();

private:
    void release();
    void readEvents();

    xcb_connection_t* connection_ = nullptr;
    std::uint32_t root_ = 0;
    std::unique_ptr<QSocketNotifier> notifier_;
    QString shortcut_;
    QString error_;
    struct Grab {
        std::uint8_t keycode;
        std::uint16_t modifiers;
    };
    std::vector<Grab> grabs_;
};

} // namespace varnel
