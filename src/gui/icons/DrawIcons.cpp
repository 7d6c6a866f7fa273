// Paints the program's pictures and writes them as PNG files into the folder
// given on the command line. The PNG files are committed; run this only to
// change the pictures:
//   cmake --build build --target quorvy_draw_icons
//   QT_QPA_PLATFORM=offscreen build/src/gui/quorvy_draw_icons src/gui/icons
//
// The motif: one server box wired to two client boxes. Active pictures are
// green, inactive ones grey, the logo and the desktop icon blue. The desktop
// icon comes in the hicolor theme's sizes, app/quorvy_<size>.png.

#include <QColor>
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QString>

#include <cstdio>

namespace {

struct Palette {
    QColor top;
    QColor bottom;
    QColor border;
    QColor symbol;
};

const Palette ACTIVE{QColor(0x51, 0xcf, 0x66), QColor(0x2b, 0x8a, 0x3e), QColor(0x1e, 0x64, 0x2c), Qt::white};
const Palette INACTIVE{QColor(0xad, 0xb5, 0xbd), QColor(0x6c, 0x75, 0x7d), QColor(0x49, 0x50, 0x57),
                       QColor(0xf8, 0xf9, 0xfa)};
const Palette LOGO{QColor(0x4d, 0xab, 0xf7), QColor(0x18, 0x64, 0xab), QColor(0x0b, 0x3d, 0x6e), Qt::white};

// Everything is drawn on a 16 by 16 grid and scaled, so that the small tray
// picture keeps its lines on whole pixels.
void PaintMotif(QPainter& painter, const Palette& palette)
{
    QLinearGradient gradient(0, 0, 0, 16);
    gradient.setColorAt(0, palette.top);
    gradient.setColorAt(1, palette.bottom);
    painter.setPen(QPen(palette.border, 1));
    painter.setBrush(gradient);
    painter.drawRoundedRect(QRectF(0.5, 0.5, 15, 15), 3, 3);

    painter.setPen(Qt::NoPen);
    painter.setBrush(palette.symbol);
    painter.drawRect(QRectF(5, 2, 6, 4));   // server
    painter.drawRect(QRectF(7.5, 6, 1, 3)); // trunk
    painter.drawRect(QRectF(3, 8, 10, 1));  // bus
    painter.drawRect(QRectF(3, 9, 1, 1));
    painter.drawRect(QRectF(12, 9, 1, 1));
    painter.drawRect(QRectF(1.5, 10, 4, 3.5));  // left client
    painter.drawRect(QRectF(10.5, 10, 4, 3.5)); // right client

    // The server's two status lights, in the picture's own dark colour.
    painter.setBrush(palette.bottom);
    painter.drawRect(QRectF(6, 3, 1, 1));
    painter.drawRect(QRectF(8, 3, 1, 1));
}

bool WritePicture(const QString& folder, const QString& name, int size, const Palette& palette)
{
    QImage image(size, size, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing, size > 16);
    painter.scale(size / 16.0, size / 16.0);
    PaintMotif(painter, palette);
    painter.end();
    const QString path = QDir(folder).filePath(name);
    if (!image.save(path, "PNG")) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char* argv[])
{
    QGuiApplication application(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <output folder>\n", argv[0]);
        return 2;
    }
    const QString folder = QString::fromLocal8Bit(argv[1]);
    bool written = WritePicture(folder, "trayIconActive.png", 16, ACTIVE) &&
                   WritePicture(folder, "trayIconInactive.png", 16, INACTIVE) &&
                   WritePicture(folder, "windowIconActive.png", 32, ACTIVE) &&
                   WritePicture(folder, "windowIconInactive.png", 32, INACTIVE) &&
                   WritePicture(folder, "logo.png", 40, LOGO);
    // The same list as the install rule of src/gui/CMakeLists.txt.
    for (const int size : {16, 24, 32, 48, 64, 128, 256}) {
        written = written && QDir(folder).mkpath("app") &&
                  WritePicture(folder, QString("app/quorvy_%1.png").arg(size), size, LOGO);
    }
    return written ? 0 : 1;
}
