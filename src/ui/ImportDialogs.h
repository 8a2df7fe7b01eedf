#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "library/FlowSummary.h"
#include "model/ScreenImport.h"

#include <optional>
#include <string>
#include <vector>
#endif

#include <QDialog>
#include <QWidget>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTreeWidget;

namespace varnel {

// File ▸ New Flow…: an empty flow's application, category and name; the library's
// applications and categories are offered and completed, the selected application first.
class NewFlowDialog : public QDialog {
    Q_OBJECT

public:
    NewFlowDialog(const std::vector<FlowSummary>& summaries,
                  const std::optional<std::string>& application, QWidget* parent = nullptr);

    QComboBox* applicationBox() const { return application_; }
    QComboBox* categoryBox() const { return category_; }
    QLineEdit* nameField() const { return name_; }
    QPushButton* createButton() const { return create_; }

    std::string application() const;
    std::optional<std::string> category() const;
    std::string name() const;

private:
    void update();

    std::vector<FlowSummary> summaries_;
    QComboBox* application_;
    QComboBox* category_;
    QLineEdit* name_;
    QPushButton* create_;
};

// What an import will make, before anything is written: each flow with its name (which can be
// changed), its number of screens and where its files are, the application and category they
// go to, and the files that will be left out and why. A flow can be left out by unticking it.
class ImportPlanDialog : public QDialog {
    Q_OBJECT

public:
    ImportPlanDialog(ScreenImport::Plan plan, const std::vector<FlowSummary>& summaries,
                     QWidget* parent = nullptr);

    QTreeWidget* flowList() const { return flows_; }
    QComboBox* applicationBox() const { return application_; }
    QComboBox* categoryBox() const { return category_; }
    QPushButton* importButton() const { return import_; }

    // The plan with the user's choices.
    ScreenImport::Plan plan() const;

private:
    void update();

    ScreenImport::Plan plan_;
    std::vector<FlowSummary> summaries_;
    QTreeWidget* flows_;
    QComboBox* application_;
    QComboBox* category_;
    QLabel* totals_;
    QPushButton* import_;
};

// What an empty library shows instead of the gallery: what Varnel is for and the three ways
// to begin.
class EmptyLibraryPanel : public QWidget {
    Q_OBJECT

public:
    explicit EmptyLibraryPanel(QWidget* parent = nullptr);

    QPushButton* captureButton() const { return capture_; }
    QPushButton* importButton() const { return import_; }
    QPushButton* newFlowButton() const { return newFlow_; }

signals:
    void captureRequested();
    void importRequested();
    void newFlowRequested();

private:
    QPushButton* capture_;
    QPushButton* import_;
    QPushButton* newFlow_;
};

} // namespace varnel
