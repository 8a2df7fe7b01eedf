#include "ui/ClipSaveBanner.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace varnel {

ClipSaveBanner::ClipSaveBanner(QWidget* parent)
    : QFrame(parent), label_(new QLabel(this)),
      reopen_(new QPushButton(tr("Open in Editor"), this)),
      discard_(new QPushButton(tr("Discard Zones"), this)) {
    setObjectName("clipSaveBanner");
    setStyleSheet("QFrame#clipSaveBanner { background: #f8d7da; border-bottom: 1px solid #e3a1a8; }"
                  "QFrame#clipSaveBanner QLabel { color: #58151c; }");
    label_->setWordWrap(true);
    reopen_->setObjectName("clipSaveReopen");
    discard_->setObjectName("clipSaveDiscard");
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(8, 6, 8, 6);
    row->addWidget(label_, 1);
    row->addWidget(reopen_);
    row->addWidget(discard_);
    const auto emitFor = [this](auto signal) {
        return [this, signal] {
            if (shown_)
                emit(this->*signal)(QString::fromStdString(shown_->folder),
                                    QString::fromStdString(shown_->filename));
        };
    };
    connect(reopen_, &QPushButton::clicked, this, emitFor(&ClipSaveBanner::reopen));
    connect(discard_, &QPushButton::clicked, this, emitFor(&ClipSaveBanner::discard));
    hide();
}

void ClipSaveBanner::setProblems(const std::vector<ClipSaves::Problem>& problems,
                                 const std::function<QString(const std::string&)>& flowName) {
    if (problems.empty()) {
        shown_.reset();
        hide();
        return;
    }
    const auto& first = problems.front();
    shown_ = first.screen;
    QString text = tr("The zones of %1 in “%2” couldn’t be saved: %3")
                       .arg(QString::fromStdString(first.screen.filename),
                            flowName(first.screen.folder), QString::fromStdString(first.reason));
    if (problems.size() > 1)
        text +=
            " " + tr("(%n more clip(s) not saved)", nullptr, static_cast<int>(problems.size() - 1));
    label_->setText(text);
    show();
}

} // namespace varnel
