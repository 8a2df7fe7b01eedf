#pragma once

#include "ui/GalleryView.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QScrollBar>
#include <QTimer>

#include <gtest/gtest.h>

#include <string>

namespace varnel::test {

// Answers the next message box once it is up with the button of that text; what it said goes
// to `text` and `informative`. The poll belongs to `owner`.
inline void answerNextBox(QObject* owner, const QString& button, QString* text,
                          QString* informative = nullptr) {
    auto* poll = new QTimer(owner);
    QObject::connect(poll, &QTimer::timeout, [=] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box)
            return;
        poll->stop();
        poll->deleteLater();
        *text = box->text();
        if (informative)
            *informative = box->informativeText();
        for (QAbstractButton* b : box->buttons())
            if (b->text().remove(QLatin1Char('&')) == button)
                b->click();
    });
    poll->start(10);
}

// The viewport point at the middle of a flow's screen.
inline QPoint tileCenter(GalleryView& gallery, const std::string& folder, std::size_t index) {
    const auto row = gallery.content().rowOfFlow(folder);
    EXPECT_TRUE(row);
    if (!row)
        return {};
    return gallery.galleryLayout().tileRect(*row, index).center() -
           QPoint(0, gallery.verticalScrollBar()->value());
}

} // namespace varnel::test
