#pragma once

#include <QWidget>

class QLabel;
class QLineEdit;
class QPushButton;

namespace varnel {

class FigmaServices;

// Settings ▸ Figma: the personal access token, kept in the keychain, and who it signs in as.
class FigmaSettingsPane : public QWidget {
    Q_OBJECT

public:
    explicit FigmaSettingsPane(FigmaServices& figma, QWidget* parent = nullptr);

    // Stores the field's token (a blank field forgets it) and asks Figma who it is.
    void saveToken();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void showAccount();

    FigmaServices& figma_;
    QLineEdit* token_;
    QPushButton* save_;
    QLabel* avatar_;
    QLabel* account_;
    bool tokenStored_ = false; // read from the keychain only when it may have changed
};

} // namespace varnel
