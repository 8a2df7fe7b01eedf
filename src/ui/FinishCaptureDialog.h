#pragma once

#ifndef Q_MOC_RUN
#include "library/FlowSummary.h"

#include <string>
#include <vector>
#endif

#include <QDialog>

class QLineEdit;
class QCompleter;

namespace varnel {

// Asks where a captured flow goes: application, category and name, the first two prefilled
// with the last ones used and completed from the library's names.
class FinishCaptureDialog : public QDialog {
    Q_OBJECT

public:
    FinishCaptureDialog(const std::vector<FlowSummary>& summaries, const std::string& application,
                        const std::string& category, QWidget* parent = nullptr);

    QLineEdit* applicationField() const { return application_; }
    QLineEdit* categoryField() const { return category_; }
    QLineEdit* nameField() const { return name_; }

    std::string application() const;
    std::string category() const;
    std::string name() const;

private:
    void updateCategorySuggestions();

    std::vector<FlowSummary> summaries_;
    QLineEdit* application_;
    QLineEdit* category_;
    QLineEdit* name_;
    QCompleter* categoryCompleter_;
};

} // namespace varnel
