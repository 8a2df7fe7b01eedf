#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "organization/CategorizeSheet.h"

#include <optional>
#include <string>
#endif

#include <QDialog>

class QComboBox;
class QCompleter;
class QLabel;
class QLineEdit;
class QPushButton;

namespace varnel {

// The "Categorize flow" sheet: pick any flow, give it an application and a category.
class CategorizeDialog : public QDialog {
    Q_OBJECT

public:
    // Opens on `folder` when given, otherwise on the first flow of the list.
    CategorizeDialog(FlowLibrary& library, const std::optional<std::string>& folder,
                     QWidget* parent = nullptr);

    QComboBox* flowPicker() const { return flow_; }
    QLineEdit* applicationField() const { return application_; }
    QLineEdit* categoryField() const { return category_; }
    QPushButton* saveButton() const { return save_; }
    QLabel* problemLabel() const { return problem_; }
    // The flow's folder after a save.
    const std::optional<std::string>& savedFolder() const { return saved_; }

    void save();

private:
    void pick(int index);
    void updateCategorySuggestions();

    CategorizeAny::Sheet sheet_;
    QComboBox* flow_;
    QLineEdit* application_;
    QLineEdit* category_;
    QCompleter* categoryCompleter_;
    QPushButton* save_;
    QLabel* problem_;
    std::optional<std::string> saved_;
};

} // namespace varnel
