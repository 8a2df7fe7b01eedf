#include "ui/ThreadPanel.h"

#include "comments/CommentThreadLogic.h"
#include "ui/Avatar.h"
#include "ui/Messages.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

namespace varnel {

namespace {

constexpr int kAvatarSize = 22;

// One message: the author's avatar when there is one, the author, then the text.
QWidget* messageRow(const std::string& author, const std::string& text, const QImage& avatar,
                    int indent, QWidget* parent) {
    auto* row = new QWidget(parent);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(indent, 0, 0, 0);
    layout->setSpacing(6);
    auto* picture = new QLabel(row);
    picture->setObjectName("avatar");
    picture->setFixedSize(kAvatarSize, kAvatarSize);
    if (!avatar.isNull())
        picture->setPixmap(roundAvatar(avatar, kAvatarSize));
    layout->addWidget(picture, 0, Qt::AlignTop);
    auto* label = new QLabel(row);
    label->setWordWrap(true);
    label->setTextFormat(Qt::RichText);
    const QString who = author.empty() ? QObject::tr("You") : qs(author).toHtmlEscaped();
    label->setText(QStringLiteral("<b>%1</b><br>%2").arg(who, qs(text).toHtmlEscaped()));
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(label, 1);
    row->setVisible(true); // at once, not on the next turn of the event loop
    return row;
}

} // namespace

ThreadPanel::ThreadPanel(QWidget* parent)
    : QFrame(parent), title_(new QLabel(tr("Comment"), this)), messages_(new QVBoxLayout),
      locked_(new QLabel(tr(CommentThreadLogic::kLocked), this)), note_(new QLabel(this)),
      edit_(new QPushButton(tr("Edit comment"), this)), replyField_(new QLineEdit(this)),
      reply_(new QPushButton(tr("Reply"), this)), open_(new QPushButton(tr("Open in Figma"), this)),
      delete_(new QPushButton(tr("Delete thread…"), this)) {
    setFrameShape(QFrame::StyledPanel);
    setMinimumWidth(240);
    setMaximumWidth(320);
    QFont bold = title_->font();
    bold.setBold(true);
    title_->setFont(bold);
    locked_->setWordWrap(true);
    locked_->setEnabled(false);
    note_->setWordWrap(true);
    note_->hide();
    replyField_->setPlaceholderText(tr("Reply"));

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(title_);
    layout->addLayout(messages_);
    layout->addWidget(locked_);
    layout->addWidget(edit_);
    auto* replyRow = new QHBoxLayout;
    replyRow->addWidget(replyField_);
    replyRow->addWidget(reply_);
    layout->addLayout(replyRow);
    layout->addWidget(open_);
    layout->addWidget(delete_);
    layout->addWidget(note_);
    layout->addStretch();
    auto* close = new QPushButton(tr("Close"), this);
    layout->addWidget(close);
    setFigmaActions({});

    connect(edit_, &QPushButton::clicked, this, &ThreadPanel::editRequested);
    connect(close, &QPushButton::clicked, this, &ThreadPanel::closeRequested);
    const auto sendReply = [this] {
        const QString text = replyField_->text().trimmed();
        if (text.isEmpty() || !actions_.reply)
            return;
        // Cleared first: sending may run the event loop, and a second Enter must find it empty.
        unsent_ = text;
        replyField_->clear();
        actions_.reply(rootId_, text.toStdString());
    };
    connect(reply_, &QPushButton::clicked, this, sendReply);
    connect(replyField_, &QLineEdit::returnPressed, this, sendReply);
    connect(open_, &QPushButton::clicked, this, [this] {
        if (actions_.open)
            actions_.open(rootId_);
    });
    connect(delete_, &QPushButton::clicked, this, [this] {
        if (!actions_.deleteThread)
            return;
        const bool confirmed =
            !hasReplies_ ||
            (confirm_ ? confirm_()
                      : confirmDestructive(
                            this, tr("Delete this thread? Its replies are deleted with it."), {},
                            tr("Delete thread")));
        if (confirmed)
            actions_.deleteThread(rootId_);
    });
}

void ThreadPanel::setFigmaActions(FigmaActions actions) {
    actions_ = std::move(actions);
    replyField_->setVisible(bool(actions_.reply));
    reply_->setVisible(bool(actions_.reply));
    open_->setVisible(bool(actions_.open));
    updateDelete();
}

void ThreadPanel::setAccountId(std::optional<std::string> id) {
    accountId_ = std::move(id);
    updateDelete();
}

// Figma lets only a thread's author delete it.
void ThreadPanel::updateDelete() {
    delete_->setVisible(actions_.deleteThread && shown_ && accountId_ &&
                        shown_->authorId == *accountId_);
}

void ThreadPanel::clearMessages() {
    while (QLayoutItem* item = messages_->takeAt(0)) {
        delete item->widget();
        delete item;
    }
}

void ThreadPanel::showThread(const FigmaThread& thread, bool editable, bool editLocked) {
    shown_ = thread;
    shownEditable_ = editable;
    shownLocked_ = editLocked;
    rootId_ = thread.rootId;
    hasReplies_ = !thread.replies.empty();
    clearMessages();
    const auto avatar = [this](const std::optional<std::string>& url) {
        return avatars_ ? avatars_(url) : QImage();
    };
    messages_->addWidget(
        messageRow(thread.authorHandle, thread.text, avatar(thread.authorImgURL), 0, this));
    for (const auto& reply : thread.replies)
        messages_->addWidget(
            messageRow(reply.authorHandle, reply.text, avatar(reply.authorImgURL), 14, this));
    edit_->setVisible(editable && !editLocked);
    locked_->setVisible(editable && editLocked);
    updateDelete();
    note_->hide();
}

void ThreadPanel::refreshAvatars() {
    if (shown_ && isVisible()) {
        const QString note = note_->text();
        showThread(*shown_, shownEditable_, shownLocked_);
        setNote(note);
    }
}

void ThreadPanel::requestFinished(bool failed) {
    if (failed && replyField_->text().isEmpty())
        replyField_->setText(unsent_);
    unsent_.clear();
}

void ThreadPanel::setNote(const QString& note) {
    note_->setText(note);
    note_->setVisible(!note.isEmpty());
}

} // namespace varnel
