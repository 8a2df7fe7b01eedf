#include "support/RenderedScreens.h"

#include "text/SearchFold.h"

#include <QFont>
#include <QPainter>
#include <QRegularExpression>
#include <QString>

#include <set>

namespace varnel::test {

namespace {

struct Copy {
    const char* title;
    std::vector<const char*> rows;
    std::vector<const char*> labels;
    const char* button;
};

const Copy& copyFor(RenderedScreen::Language language, int variant) {
    static const Copy english[] = {
        {"Settings",
         {"Account details", "Notifications", "Privacy and security", "Payment methods"},
         {"Signed in as jane appleseed", "Version 4.2 build 118"},
         "Sign out"},
        {"Checkout",
         {"Shipping address", "Delivery options", "Order summary", "Promo code"},
         {"Free returns within thirty days", "Taxes calculated at payment"},
         "Place order"},
    };
    static const Copy french[] = {
        {"Réglages",
         {"Détails du compte", "Préférences générales", "Sécurité et confidentialité",
          "Moyens de paiement"},
         {"Connecté en tant que Hélène", "Dernière mise à jour"},
         "Déconnexion"},
        {"Panier",
         {"Adresse de livraison", "Délai estimé", "Récapitulatif", "Code promotionnel"},
         {"Retours gratuits pendant trente jours", "Taxes comprises"},
         "Commander"},
    };
    static const Copy korean[] = {
        {"설정",
         {"계정 정보", "알림 설정", "개인정보 보호", "결제 수단"},
         {"버전 정보", "고객 센터"},
         "로그아웃"},
        {"장바구니",
         {"배송 주소", "주문 내역", "할인 쿠폰", "결제 하기"},
         {"무료 반품", "세금 포함"},
         "주문하기"},
    };
    const Copy* table = language == RenderedScreen::Language::english  ? english
                        : language == RenderedScreen::Language::french ? french
                                                                       : korean;
    return table[variant % 2];
}

void addWords(std::vector<std::string>& words, const char* text) {
    for (const QString& word : QString::fromUtf8(text).split(' ', Qt::SkipEmptyParts))
        words.push_back(word.toStdString());
}

} // namespace

RenderedScreen renderScreen(RenderedScreen::Language language, bool dark, int variant) {
    constexpr int kWidth = 1179;
    constexpr int kHeight = 2556;
    const Copy& copy = copyFor(language, variant);
    const QString family = language == RenderedScreen::Language::korean
                               ? QStringLiteral("Noto Sans CJK KR")
                               : QStringLiteral("DejaVu Sans");
    const QColor background = dark ? QColor(0, 0, 0) : QColor(242, 242, 247);
    const QColor card = dark ? QColor(28, 28, 30) : QColor(255, 255, 255);
    const QColor ink = dark ? QColor(255, 255, 255) : QColor(0, 0, 0);
    const QColor grey(142, 142, 147);

    RenderedScreen screen;
    screen.image = QImage(kWidth, kHeight, QImage::Format_ARGB32);
    screen.image.fill(background);
    QPainter painter(&screen.image);
    painter.setRenderHint(QPainter::TextAntialiasing);
    const auto text = [&](int x, int y, int size, QColor colour, const char* words, bool bold) {
        QFont font(family);
        font.setPixelSize(size);
        font.setBold(bold);
        painter.setFont(font);
        painter.setPen(colour);
        const QRect box =
            painter.boundingRect(QRect(x, y, kWidth - 2 * x, size * 2),
                                 Qt::AlignLeft | Qt::AlignTop, QString::fromUtf8(words));
        painter.drawText(box, Qt::AlignLeft | Qt::AlignTop, QString::fromUtf8(words));
        addWords(screen.words, words);
        return box;
    };

    const QRect title = text(60, 180, 96, ink, copy.title, true);
    screen.titleBox = QRectF(double(title.x()) / kWidth, double(title.y()) / kHeight,
                             double(title.width()) / kWidth, double(title.height()) / kHeight);
    painter.fillRect(40, 360, kWidth - 80, 150 * int(copy.rows.size()) + 40, card);
    int y = 400;
    for (const char* row : copy.rows) {
        text(90, y, 52, ink, row, false);
        y += 150;
    }
    y += 80;
    for (const char* label : copy.labels) {
        text(90, y, 36, grey, label, false);
        y += 90;
    }
    // White text on a coloured button, the hardest case for one global threshold.
    const QColor button = variant % 2 ? QColor(52, 199, 89) : QColor(0, 122, 255);
    painter.setBrush(button);
    painter.setPen(Qt::NoPen);
    painter.drawRoundedRect(QRect(90, y + 60, kWidth - 180, 150), 40, 40);
    text(140, y + 100, 54, Qt::white, copy.button, true);
    return screen;
}

RenderedScreen renderTitles(int pixelSize, bool bold, bool dark) {
    constexpr int kWidth = 1179;
    constexpr int kHeight = 2556;
    constexpr int kMargin = 60;
    static const char* const titles[] = {
        "Library",  "Favorites",  "Bibliothèque", "Réglages", "Settings",   "Découvrir",
        "Messages", "Paramètres", "Photos",       "Musique",  "Browse",     "Favoris",
        "Wallet",   "Accueil",    "Summary",      "Profil",   "Listen Now", "Mes achats"};
    RenderedScreen screen;
    screen.image = QImage(kWidth, kHeight, QImage::Format_ARGB32);
    screen.image.fill(dark ? QColor(0, 0, 0) : QColor(255, 255, 255));
    QPainter painter(&screen.image);
    painter.setRenderHint(QPainter::TextAntialiasing);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(pixelSize);
    font.setBold(bold);
    painter.setFont(font);
    painter.setPen(dark ? QColor(255, 255, 255) : QColor(0, 0, 0));
    const int lineHeight = pixelSize * 3 / 2;
    int y = 120;
    for (const char* title : titles) {
        if (y + lineHeight > kHeight - kMargin)
            break;
        const QString text = QString::fromUtf8(title);
        if (painter.fontMetrics().horizontalAdvance(text) > kWidth - 2 * kMargin)
            continue;
        painter.drawText(QRect(kMargin, y, kWidth - 2 * kMargin, lineHeight),
                         Qt::AlignLeft | Qt::AlignVCenter, text);
        addWords(screen.words, title);
        y += lineHeight;
    }
    return screen;
}

double wordRecall(const std::vector<std::string>& expected, const std::string& text) {
    if (expected.empty())
        return 1;
    // Words are looked for as a user types them, through the search's own folding: an accent
    // misread is still found, and Korean syllables the model spaced apart still match.
    const QString folded = QString::fromStdString(SearchFold::fold(text));
    std::set<QString> tokens;
    for (const QString& word :
         folded.split(QRegularExpression("[\\s,.:;!?()]+"), Qt::SkipEmptyParts))
        tokens.insert(word);
    std::size_t hits = 0;
    for (const auto& word : expected) {
        const QString w = QString::fromStdString(SearchFold::fold(word));
        const bool latin = w.contains(QRegularExpression("[a-z]"));
        if (latin ? tokens.contains(w) : folded.contains(w))
            ++hits;
    }
    return static_cast<double>(hits) / static_cast<double>(expected.size());
}

} // namespace varnel::test
