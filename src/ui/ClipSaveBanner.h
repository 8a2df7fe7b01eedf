#pragma once

#ifndef Q_MOC_RUN
#include "model/ClipSaves.h"
#endif

#include <QFrame>

class QLabel;
class QPushButton;

namespace varnel {

// Says, above the gallery, which clip's zones could not be saved and why, with the way back
// to them: reopen the editor with the zones in place, or let them go.
class ClipSaveBanner : public QFrame {
    Q_OBJECT

public:
    explicit ClipSaveBanner(QWidget* parent = nullptr);

    // Shows the first problem (and how many more there are); hidden when there are none.
    // `flowName` gives a flow's name from its folder.
    void setProblems(const std::vector<ClipSaves::Problem>& problems,
                     const std::function<QString(const std::string&)>& flowName);
    const std::optional<ScreenID>& shown() const { return shown_; }
    QLabel* label() const { return label_; }

signals:
    void reopen(const QString& folder, const QString& filename);
    void discard(const QString& folder, const QString& filename);

private:
    QLabel* label_;
    QPushButton* reopen_;
    QPushButton* discard_;
    std::optional<ScreenID> shown_;
};

} // namespace varnel
