#include "BenchScreen.h"

#include "library/Uuid.h"

#include <QFont>
#include <QLinearGradient>
#include <QPainter>

#include <random>

namespace varnel::bench {

namespace fs = std::filesystem;

TempFolder::TempFolder() : path(fs::temp_directory_path() / ("varnel-bench-" + newUUIDString())) {
    fs::create_directories(path);
}

TempFolder::~TempFolder() {
    fs::remove_all(path);
}

QImage phoneScreen() {
    QImage image(kWidth, kHeight, QImage::Format_RGB32);
    image.fill(QColor(248, 248, 250));
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::TextAntialiasing);
    p.fillRect(0, 0, kWidth, 150, QColor(250, 250, 252));
    QFont font("DejaVu Sans");
    font.setPixelSize(44);
    p.setFont(font);
    p.setPen(Qt::black);
    p.drawText(60, 100, "9:41");
    font.setPixelSize(84);
    font.setBold(true);
    p.setFont(font);
    p.drawText(60, 300, "Settings");
    QLinearGradient sky(0, 360, 0, 1100);
    sky.setColorAt(0, QColor(40, 110, 200));
    sky.setColorAt(1, QColor(240, 160, 90));
    p.fillRect(60, 360, kWidth - 120, 740, sky);
    std::mt19937 random(3);
    for (int i = 0; i < 4000; ++i) { // texture of a photo
        p.setPen(QColor(random() % 256, random() % 256, random() % 256, 90));
        p.drawPoint(60 + static_cast<int>(random() % (kWidth - 120)),
                    360 + static_cast<int>(random() % 740));
    }
    font.setBold(false);
    font.setPixelSize(46);
    p.setFont(font);
    const char* rows[] = {
        "Wi-Fi", "Bluetooth",   "Mobile Data", "Notifications",  "Sounds & Haptics",
        "Focus", "Screen Time", "General",     "Control Centre", "Display"};
    int y = 1180;
    for (const char* row : rows) {
        p.fillRect(60, y, kWidth - 120, 120, Qt::white);
        p.setPen(QColor(30, 30, 30));
        p.drawText(200, y + 76, row);
        p.fillRect(90, y + 25, 70, 70, QColor(52, 120, 246));
        p.setPen(QColor(150, 150, 155));
        p.drawText(kWidth - 160, y + 76, "›");
        y += 124;
    }
    p.setBrush(QColor(52, 120, 246));
    p.setPen(Qt::NoPen);
    p.drawRoundedRect(QRect(60, 2420, kWidth - 120, 110), 30, 30);
    p.setPen(Qt::white);
    p.drawText(QRect(60, 2420, kWidth - 120, 110), Qt::AlignCenter, "Continue");
    return image;
}

} // namespace varnel::bench
