#include "ui/SettingsWindow.h"
#include "text/ApertiumEngine.h"
#include "text/Languages.h"
#include "ui/FigmaSettingsPane.h"
#include "ui/SecondaryWindows.h"

#include "editing/ImageRedactor.h"

#include "ui/ImageConversion.h"
#include "ui/Messages.h"

#include "app/AppSettings.h"
#include "capture/ShutterSound.h"
#include "ui/Appearance.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDesktopServices>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QLineEdit>
#include <QPixmap>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <QTabWidget>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace varnel {

namespace {

// A row of radio buttons acting as one segmented choice; ids are the options' positions.
QButtonGroup* choice(QWidget* parent, QHBoxLayout* row, const QStringList& labels, int checked) {
    auto* group = new QButtonGroup(parent);
    for (int i = 0; i < labels.size(); ++i) {
        auto* button = new QRadioButton(labels[i], parent);
        group->addButton(button, i);
        row->addWidget(button);
    }
    row->addStretch();
    if (QAbstractButton* button = group->button(checked))
        button->setChecked(true);
    return group;
}

QSlider* slider(QWidget* parent, int min, int max, int value) {
    auto* s = new QSlider(Qt::Horizontal, parent);
    s->setRange(min, max);
    s->setValue(value);
    return s;
}

// A slider with its value written beside it.
QHBoxLayout* withValue(QSlider* slider, const QString& format) {
    auto* row = new QHBoxLayout;
    auto* value = new QLabel(slider->parentWidget());
    value->setMinimumWidth(60);
    auto show = [value, format](int v) { value->setText(format.arg(v)); };
    show(slider->value());
    QObject::connect(slider, &QSlider::valueChanged, value, show);
    row->addWidget(slider, 1);
    row->addWidget(value);
    return row;
}

QLabel* note(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

} // namespace

SettingsWindow::SettingsWindow(AppSettings& settings, QWidget* parent, FigmaServices* figma)
    : QDialog(parent), settings_(settings), figma_(figma), tabs_(new QTabWidget(this)),
      sound_(std::make_unique<ShutterSound>()) {
    setWindowTitle(tr("Settings"));
    tabs_->addTab(flowsTab(), tr("Flows"));
    tabs_->addTab(appearanceTab(), tr("Appearance"));
    tabs_->addTab(redactionTab(), tr("Redaction"));
    tabs_->addTab(storageTab(), tr("Storage"));
    tabs_->addTab(figmaTab(), tr("Figma"));
    tabs_->addTab(translationTab(), tr("Translation"));
    tabs_->addTab(updatesTab(), tr("Updates"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(tabs_);
    resize(560, 420);
    behaveAsSecondaryWindow(this);

    const auto remembered =
        std::find(std::begin(kTabs), std::end(kTabs), settings_.settingsSelectedTab());
    tabs_->setCurrentIndex(remembered == std::end(kTabs)
                               ? 0
                               : static_cast<int>(std::distance(std::begin(kTabs), remembered)));
    connect(tabs_, &QTabWidget::currentChanged, this,
            [this](int index) { settings_.setSettingsSelectedTab(kTabs[index]); });
}

SettingsWindow::~SettingsWindow() = default;

QWidget* SettingsWindow::flowsTab() {
    auto* tab = new QWidget(this);
    auto* form = new QFormLayout(tab);

    auto* height = slider(tab, static_cast<int>(AppSettings::kThumbnailHeightMin),
                          static_cast<int>(AppSettings::kThumbnailHeightMax),
                          static_cast<int>(settings_.thumbnailHeight()));
    height->setObjectName("thumbnailHeight");
    connect(height, &QSlider::valueChanged, this,
            [this](int value) { settings_.setThumbnailHeight(value); });
    form->addRow(tr("Thumbnail height"), withValue(height, tr("%1 pt")));

    auto* layoutRow = new QHBoxLayout;
    auto* captureView = choice(tab, layoutRow, {tr("Centered"), tr("Side panel")},
                               settings_.captureView() == CaptureView::panel ? 1 : 0);
    connect(captureView, &QButtonGroup::idClicked, this, [this](int id) {
        settings_.setCaptureView(id == 1 ? CaptureView::panel : CaptureView::centered);
    });
    form->addRow(tr("Capture window"), layoutRow);

    auto* shutter = new QCheckBox(tr("Play a shutter sound on capture"), tab);
    shutter->setObjectName("shutterSoundEnabled");
    shutter->setChecked(settings_.shutterSoundEnabled());
    connect(shutter, &QCheckBox::toggled, this,
            [this](bool on) { settings_.setShutterSoundEnabled(on); });
    form->addRow(tr("Shutter"), shutter);
    auto* sound = new QComboBox(tab);
    sound->setObjectName("shutterSoundName");
    for (const auto& option : ShutterSound::catalogue(ShutterSound::defaultDirectories()))
        sound->addItem(qs(option.displayName), qs(option.id));
    // The stored name may be one this system does not have: the fallback plays then.
    int current = sound->findData(qs(settings_.shutterSoundName()));
    if (current < 0)
        current = sound->findData(QString::fromLatin1(ShutterSound::kFallbackID));
    sound->setCurrentIndex(std::max(current, 0));
    connect(sound, qOverload<int>(&QComboBox::activated), this, [this, sound](int index) {
        settings_.setShutterSoundName(sound->itemData(index).toString().toStdString());
        if (settings_.shutterSoundEnabled())
            sound_->play(settings_.shutterSoundName(), settings_.shutterVolume());
    });
    form->addRow(tr("Shutter sound"), sound);
    auto* volume =
        slider(tab, 0, 100, static_cast<int>(std::lround(settings_.shutterVolume() * 100)));
    volume->setObjectName("shutterVolume");
    connect(volume, &QSlider::valueChanged, this,
            [this](int value) { settings_.setShutterVolume(value / 100.0); });
    form->addRow(tr("Volume"), withValue(volume, tr("%1 %")));

    auto* hotkeyRow = new QHBoxLayout;
    auto* hotkey = new QKeySequenceEdit(
        QKeySequence::fromString(qs(settings_.captureHotkey()), QKeySequence::PortableText), tab);
    hotkey->setObjectName("captureHotkey");
    auto* clear = new QPushButton(tr("Clear"), tab);
    hotkeyRow->addWidget(hotkey, 1);
    hotkeyRow->addWidget(clear);
    connect(hotkey, &QKeySequenceEdit::editingFinished, this, [this, hotkey] {
        // One key with its modifiers: a second stroke of a sequence is dropped.
        const QKeySequence typed = hotkey->keySequence();
        const QKeySequence first = typed.isEmpty() ? QKeySequence() : QKeySequence(typed[0]);
        if (first != typed)
            hotkey->setKeySequence(first);
        settings_.setCaptureHotkey(first.toString(QKeySequence::PortableText).toStdString());
    });
    connect(clear, &QPushButton::clicked, this, [this, hotkey] {
        hotkey->clear();
        settings_.setCaptureHotkey({});
    });
    form->addRow(tr("Capture shortcut"), hotkeyRow);
    form->addRow(QString(), note(tr("Captures a still while a capture session runs, whichever "
                                    "application has the keyboard."),
                                 tab));
    return tab;
}

QWidget* SettingsWindow::appearanceTab() {
    auto* tab = new QWidget(this);
    auto* form = new QFormLayout(tab);
    auto* themeRow = new QHBoxLayout;
    auto* theme = choice(tab, themeRow, {tr("System"), tr("Dark"), tr("Light")},
                         static_cast<int>(settings_.appearance()));
    theme->setObjectName("appearance");
    connect(theme, &QButtonGroup::idClicked, this, [this](int id) {
        settings_.setAppearance(static_cast<Appearance>(id));
        applyAppearance(settings_.appearance(), settings_.accent());
    });
    form->addRow(tr("Appearance"), themeRow);

    auto* accentRow = new QHBoxLayout;
    auto* accent = choice(tab, accentRow, {tr("Blue"), tr("Purple"), tr("Green"), tr("Orange")},
                          static_cast<int>(settings_.accent()));
    connect(accent, &QButtonGroup::idClicked, this, [this](int id) {
        settings_.setAccent(static_cast<Accent>(id));
        applyAppearance(settings_.appearance(), settings_.accent());
    });
    form->addRow(tr("Accent colour"), accentRow);
    return tab;
}

QWidget* SettingsWindow::redactionTab() {
    auto* tab = new QWidget(this);
    auto* layout = new QVBoxLayout(tab);
    layout->addWidget(
        note(tr("Presets for blurring sensitive areas — device light vs dark mode usually needs "
                "different values. Pick the matching preset in the blur editor (top-right)."),
             tab));
    auto* presetRow = new QHBoxLayout;
    preset_ = choice(tab, presetRow, {tr("Light captures"), tr("Dark captures")}, 0);
    layout->addLayout(presetRow);
    preview_ = new QLabel(tab);
    preview_->setObjectName("redactionPreview");
    preview_->setFixedSize(260, 132);
    preview_->setToolTip(tr("A made-up screen, its right half blurred as zones will be"));
    layout->addWidget(preview_, 0, Qt::AlignHCenter);

    auto* form = new QFormLayout;
    blur_ = slider(tab, 1, 150, 50);
    blur_->setObjectName("blur");
    form->addRow(tr("Blur"), withValue(blur_, tr("%1 px")));
    color_ = new QPushButton(tab);
    color_->setObjectName("color");
    color_->setMinimumWidth(120);
    auto* colorRow = new QHBoxLayout;
    colorRow->addWidget(color_);
    colorRow->addStretch();
    form->addRow(tr("Color"), colorRow);
    opacity_ = slider(tab, 0, 100, 35);
    opacity_->setObjectName("opacity");
    form->addRow(tr("Opacity"), withValue(opacity_, tr("%1 %")));
    layout->addLayout(form);
    layout->addStretch();

    connect(preset_, &QButtonGroup::idClicked, this, [this] { showPresetStyle(); });
    connect(blur_, &QSlider::valueChanged, this, [this] { editPresetStyle(); });
    connect(opacity_, &QSlider::valueChanged, this, [this] { editPresetStyle(); });
    connect(color_, &QPushButton::clicked, this, [this] {
        const QColor chosen = QColorDialog::getColor(color_->property("tint").value<QColor>(), this,
                                                     tr("Blur colour"));
        if (!chosen.isValid())
            return;
        color_->setProperty("tint", chosen);
        editPresetStyle();
        showPresetStyle();
    });
    showPresetStyle();
    return tab;
}

void SettingsWindow::showPresetStyle() {
    const bool dark = preset_->checkedId() == 1;
    const RedactStyle style = dark ? settings_.redactDark() : settings_.redactLight();
    loadingStyle_ = true;
    blur_->setValue(static_cast<int>(std::lround(style.blur)));
    opacity_->setValue(static_cast<int>(std::lround(style.opacity * 100)));
    const QColor tint =
        QColor::fromRgbF(static_cast<float>(style.red), static_cast<float>(style.green),
                         static_cast<float>(style.blue));
    color_->setProperty("tint", tint);
    color_->setText(tint.name());
    color_->setStyleSheet(
        QString("QPushButton { border-left: 18px solid %1; padding: 4px 8px; }").arg(tint.name()));
    loadingStyle_ = false;
    showPreview(dark, style);
}

void SettingsWindow::showPreview(bool dark, const RedactStyle& style) {
    const cv::Mat sample =
        ImageRedactor::samplePreview(preview_->width(), preview_->height(), dark, style);
    preview_->setPixmap(QPixmap::fromImage(qImageOf(sample)));
}

void SettingsWindow::editPresetStyle() {
    if (loadingStyle_)
        return;
    const QColor tint = color_->property("tint").value<QColor>();
    const RedactStyle style{tint.redF(), tint.greenF(), tint.blueF(), opacity_->value() / 100.0,
                            static_cast<double>(blur_->value())};
    if (preset_->checkedId() == 1)
        settings_.setRedactDark(style);
    else
        settings_.setRedactLight(style);
    showPreview(preset_->checkedId() == 1, style);
}

QWidget* SettingsWindow::storageTab() {
    auto* tab = new QWidget(this);
    auto* form = new QFormLayout(tab);
    rootLabel_ = new QLabel(qs(settings_.rootFolderPath()), tab);
    rootLabel_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    rootLabel_->setWordWrap(true);
    form->addRow(tr("Library folder"), rootLabel_);
    auto* buttons = new QHBoxLayout;
    auto* choose = new QPushButton(tr("Choose…"), tab);
    auto* show = new QPushButton(tr("Show in File Manager"), tab);
    buttons->addWidget(choose);
    buttons->addWidget(show);
    buttons->addStretch();
    form->addRow(QString(), buttons);
    connect(choose, &QPushButton::clicked, this, [this] {
        const QString folder = QFileDialog::getExistingDirectory(
            this, tr("Choose the library folder"), qs(settings_.rootFolderPath()));
        if (!folder.isEmpty())
            emit libraryFolderChosen(folder);
    });
    connect(show, &QPushButton::clicked, this, [this] {
        QDesktopServices::openUrl(QUrl::fromLocalFile(qs(settings_.rootFolderPath())));
    });
    connect(&settings_, &AppSettings::changed, this, [this](const QString& key) {
        if (key == "rootFolderPath")
            rootLabel_->setText(qs(settings_.rootFolderPath()));
    });
    return tab;
}

QWidget* SettingsWindow::translationTab() {
    auto* tab = new QWidget(this);
    auto* form = new QFormLayout(tab);
    auto* language = new QComboBox(tab);
    language->setObjectName("translationLanguage");
    for (const char* code : {"en", "es", "fr", "de", "it", "pt", "nl", "ko", "ja", "zh"})
        language->addItem(qs(Languages::name(code)), QString(code));
    language->setCurrentIndex(std::max(0, language->findData(qs(settings_.translationLanguage()))));
    connect(language, &QComboBox::currentIndexChanged, this, [this, language] {
        settings_.setTranslationLanguage(language->currentData().toString().toStdString());
    });
    form->addRow(tr("Translate into"), language);

    // What this computer translates by itself.
    const ApertiumEngine apertium;
    QStringList pairs;
    for (const auto& [from, to] : apertium.pairs())
        pairs << tr("%1 → %2").arg(qs(Languages::name(from)), qs(Languages::name(to)));
    auto* installed = new QLabel(
        !apertium.isInstalled()
            ? tr("Apertium is not installed: sudo apt install apertium apertium-eng-spa (one "
                 "package per language pair).")
        : pairs.isEmpty()
            ? tr("Apertium has no language pair installed: install one, such as "
                 "apertium-eng-spa.")
            : pairs.join(", ") + tr("\nMore pairs: sudo apt install apertium-<pair> (apt search "
                                    "apertium)."),
        tab);
    installed->setObjectName("apertiumPairs");
    installed->setWordWrap(true);
    form->addRow(tr("On this computer"), installed);

    auto* server = new QLineEdit(qs(settings_.translationServer()), tab);
    server->setObjectName("translationServer");
    server->setPlaceholderText(tr("https://translate.example.org (off)"));
    connect(server, &QLineEdit::editingFinished, this, [this, server] {
        settings_.setTranslationServer(server->text().trimmed().toStdString());
    });
    form->addRow(tr("LibreTranslate server"), server);
    auto* note = new QLabel(tr("For language pairs Apertium lacks. Lines are sent to this server "
                               "only when it is set; leave it empty to keep everything on this "
                               "computer."),
                            tab);
    note->setWordWrap(true);
    form->addRow(QString(), note);
    return tab;
}

QWidget* SettingsWindow::updatesTab() {
    auto* tab = new QWidget(this);
    auto* form = new QFormLayout(tab);
    auto* weekly = new QCheckBox(tr("Check for a new version once a week"), tab);
    weekly->setObjectName("checkForUpdatesWeekly");
    weekly->setChecked(settings_.checkForUpdatesWeekly());
    connect(weekly, &QCheckBox::toggled, this,
            [this](bool on) { settings_.setCheckForUpdatesWeekly(on); });
    form->addRow(QString(), weekly);
    auto* feed = new QLineEdit(qs(settings_.updateFeed()), tab);
    feed->setObjectName("updateFeed");
    connect(feed, &QLineEdit::editingFinished, this, [this, feed] {
        settings_.setUpdateFeed(feed->text().trimmed().toStdString());
        feed->setText(qs(settings_.updateFeed()));
    });
    form->addRow(tr("Release feed"), feed);
    auto* note = new QLabel(tr("Varnel only reads this short list of versions; it downloads and "
                               "installs nothing by itself. Help ▸ Check for Updates… looks "
                               "now."),
                            tab);
    note->setWordWrap(true);
    form->addRow(QString(), note);
    return tab;
}

QWidget* SettingsWindow::figmaTab() {
    if (figma_)
        return new FigmaSettingsPane(*figma_, this);
    auto* tab = new QWidget(this);
    auto* layout = new QVBoxLayout(tab);
    layout->addWidget(note(tr("Figma isn't available in this window."), tab));
    layout->addStretch();
    return tab;
}

} // namespace varnel
