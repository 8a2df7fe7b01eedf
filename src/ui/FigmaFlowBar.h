#pragma once

#ifndef Q_MOC_RUN
#include <optional>
#include <string>
#endif

#include <QFrame>

class QLabel;
class QLineEdit;
class QPushButton;

namespace varnel {

class FigmaServices;
class FlowLibrary;
class PackageChip;

// The current flow's Figma row: its export package (to drag onto the import plugin), the link
// to the file it was imported into, and publishing with its pending changes and outcome.
class FigmaFlowBar : public QFrame {
    Q_OBJECT

public:
    static constexpr const char* kNotAFigmaLink = "Not a Figma file URL";

    FigmaFlowBar(FlowLibrary& library, FigmaServices& figma, QWidget* parent = nullptr);

    void setFlow(const std::optional<std::string>& folderName);
    const std::optional<std::string>& flow() const { return folder_; }

    void exportPackage();
    // Stores the link field's text as the flow's link, or says why not.
    void applyLink();
    void publish();

    // The line under the controls: what publishing did or is doing.
    QString statusText() const;
    QLineEdit* linkField() const { return link_; }
    QPushButton* publishButton() const { return publish_; }
    // Shown when a Figma file link was copied while this flow has none.
    QPushButton* linkOfferButton() const { return offer_; }
    QPushButton* exportButton() const { return export_; }
    bool isExporting() const { return exporting_; }

private:
    void refresh();
    void showError(const QString& text);
    void clipboardChanged();
    void acceptOffer();

    FlowLibrary& library_;
    FigmaServices& figma_;
    std::optional<std::string> folder_;
    QLabel* title_;
    QPushButton* export_;
    PackageChip* chip_;
    QLineEdit* link_;
    QPushButton* publish_;
    QPushButton* offer_;
    QLabel* status_;
    QString error_; // a local error (link, export) until the flow changes
    QString note_;  // what the last export did, until the flow changes
    std::optional<std::string> offeredURL_;
    bool exporting_ = false;
};

} // namespace varnel
