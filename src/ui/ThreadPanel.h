#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "figma/FigmaThread.h"

#include <functional>
#include <optional>
#include <string>
#endif

#include <QFrame>
#include <QImage>

class QLabel;
class QLineEdit;
class QPushButton;
class QVBoxLayout;

namespace varnel {

// The conversation of one pin: the thread's root and replies with their authors, and what can
// be done with it. Replying, deleting and opening in Figma need Figma; their buttons show only
// once those actions are given.
class ThreadPanel : public QFrame {
    Q_OBJECT

public:
    struct FigmaActions {
        std::function<void(const std::string& rootId, const std::string& text)> reply;
        std::function<void(const std::string& rootId)> deleteThread;
        std::function<void(const std::string& rootId)> open;
    };

    explicit ThreadPanel(QWidget* parent = nullptr);

    void setFigmaActions(FigmaActions actions);
    // `editable`: the thread is this screen's own pin, so its text may be edited unless locked.
    void showThread(const FigmaThread& thread, bool editable, bool editLocked);
    const std::string& rootId() const { return rootId_; }
    // Where authors' pictures come from: the picture of an address, or none yet.
    void setAvatarSource(std::function<QImage(const std::optional<std::string>&)> source) {
        avatars_ = std::move(source);
    }
    // Shows the thread again, with the pictures that arrived since.
    void refreshAvatars();
    // A line under the thread, for what Figma answered.
    void setNote(const QString& note);
    // A reply or delete ended; a reply that failed goes back into the field, not lost.
    void requestFinished(bool failed);
    QPushButton* deleteButton() const { return delete_; }
    // The signed-in Figma account: Delete is offered only on its own threads.
    void setAccountId(std::optional<std::string> id);
    // Asked before deleting a thread with replies; tests answer it themselves.
    void setDeleteConfirmation(std::function<bool()> confirm) { confirm_ = std::move(confirm); }

signals:
    void editRequested();
    void closeRequested();

private:
    void clearMessages();
    void updateDelete();

    QLabel* title_;
    QVBoxLayout* messages_;
    QLabel* locked_;
    QLabel* note_;
    QPushButton* edit_;
    QLineEdit* replyField_;
    QPushButton* reply_;
    QPushButton* open_;
    QPushButton* delete_;
    std::optional<std::string> accountId_;
    QString unsent_; // the reply being sent
    FigmaActions actions_;
    std::string rootId_;
    bool hasReplies_ = false;
    std::function<bool()> confirm_;
    std::function<QImage(const std::optional<std::string>&)> avatars_;
    std::optional<FigmaThread> shown_;
    bool shownEditable_ = false;
    bool shownLocked_ = false;
};

} // namespace varnel
