#include "ui/FigmaSettingsPane.h"

#include "figma/FigmaAuth.h"
#include "figma/FigmaServices.h"
#include "ui/Avatar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace varnel {

namespace {

constexpr int kAvatarSize = 36;

} // namespace

FigmaSettingsPane::FigmaSettingsPane(FigmaServices& figma, QWidget* parent)
    : QWidget(parent), figma_(figma), token_(new QLineEdit(this)),
      save_(new QPushButton(tr("Save Token"), this)), avatar_(new QLabel(this)),
      account_(new QLabel(this)) {
    auto* intro = new QLabel(
        tr("Varnel publishes your comment pins to the Figma file a flow was imported into, and "
           "brings the replies back. It signs in with a personal access token: create one in "
           "Figma under Settings → Security → Personal access tokens, with access to comments "
           "and to file content."),
        this);
    intro->setWordWrap(true);
    token_->setObjectName("figmaToken");
    token_->setEchoMode(QLineEdit::Password);
    token_->setClearButtonEnabled(true);
    save_->setObjectName("saveFigmaToken");
    avatar_->setFixedSize(kAvatarSize, kAvatarSize);
    account_->setObjectName("figmaAccount");
    account_->setWordWrap(true);

    auto* tokenRow = new QHBoxLayout;
    tokenRow->addWidget(token_, 1);
    tokenRow->addWidget(save_);
    auto* accountRow = new QHBoxLayout;
    accountRow->addWidget(avatar_);
    accountRow->addWidget(account_, 1);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(intro);
    layout->addSpacing(8);
    layout->addWidget(new QLabel(tr("Personal access token"), this));
    layout->addLayout(tokenRow);
    layout->addSpacing(8);
    layout->addLayout(accountRow);
    layout->addStretch();

    connect(save_, &QPushButton::clicked, this, &FigmaSettingsPane::saveToken);
    connect(token_, &QLineEdit::returnPressed, this, &FigmaSettingsPane::saveToken);
    connect(&figma_.account(), &FigmaAccountCache::changed, this, &FigmaSettingsPane::showAccount);
    tokenStored_ = FigmaAuth::token(figma_.secrets()).has_value();
    showAccount();
}

void FigmaSettingsPane::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    figma_.account().ensureLoaded();
    showAccount();
}

void FigmaSettingsPane::saveToken() {
    FigmaAuth::setToken(token_->text().toStdString(), figma_.secrets());
    tokenStored_ = FigmaAuth::token(figma_.secrets()).has_value();
    token_->clear(); // the token is never shown again, only where it is kept
    figma_.account().clear();
    figma_.account().ensureLoaded();
    showAccount();
}

void FigmaSettingsPane::showAccount() {
    const bool stored = tokenStored_;
    token_->setPlaceholderText(stored ? tr("A token is stored — type a new one to replace it")
                                      : tr("Paste your token here"));
    const FigmaAccountCache& cache = figma_.account();
    const QImage avatar = cache.avatar();
    avatar_->setPixmap(avatar.isNull() ? QPixmap() : roundAvatar(avatar, kAvatarSize));
    avatar_->setVisible(!avatar.isNull());
    if (cache.account()) {
        QString text = tr("Signed in as <b>%1</b>")
                           .arg(QString::fromStdString(cache.account()->handle).toHtmlEscaped());
        if (cache.account()->email)
            text += QStringLiteral("<br>") +
                    QString::fromStdString(*cache.account()->email).toHtmlEscaped();
        account_->setText(text);
    } else if (cache.loading()) {
        account_->setText(tr("Checking the token with Figma…"));
    } else if (!cache.lastError().empty()) {
        account_->setText(QString::fromStdString(cache.lastError()));
    } else {
        account_->setText(stored ? QString()
                                 : tr("No token stored. Publishing is off until you add one."));
    }
}

} // namespace varnel
