#pragma once

#include <QObject>

#include <cstdint>
#include <memory>

class QSocketNotifier;
typedef struct xcb_connection_t xcb_connection_t;

namespace varnel {

// Tells when an X window is destroyed, hidden (unmapped, as a minimized window is) or shown
// again. Reading a window's pixels says none of this, so the capture service listens to the
// X server too.
class WindowWatch : public QObject {
    Q_OBJECT

public:
    // Starts watching; `isValid` is false when the window does not exist (any more).
    explicit WindowWatch(std::uint32_t window, QObject* parent = nullptr);
    ~WindowWatch() override;

    bool isValid() const { return valid_; }
    bool isViewable() const { return viewable_; }

signals:
    void closed();
    void viewableChanged(bool viewable);

private:
    void readEvents();

    std::uint32_t window_;
    xcb_connection_t* connection_ = nullptr;
    std::unique_ptr<QSocketNotifier> notifier_;
    bool valid_ = false;
    bool viewable_ = false;
};

} // namespace varnel
